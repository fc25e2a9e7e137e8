// The loaded module and the choices that all commands share, where the module is found, and what it
// has said.
#pragma once

#include "standin/standin.h"
#include "vorla/options.h"

// How pictures are opened.
struct Session {
    const Options &options;
    StandinModule module = {};
    std::string module_path;
    int32_t channels; // value of the capability request; undecided: none

    // Loads the module that the options name; else that of $VORLA_MODULE, else the one beside the
    // program, else in ../lib/vorla/modules from there. Throws a Failure, EXIT_MODULE.
    explicit Session(const Options &chosen);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
};

// The texts of the module's messages since forget_messages.
[[nodiscard]] const std::vector<std::string> &module_messages();
void forget_messages();

// True when the module has issued message `number` since then; number 0 stands for its report of a
// system error.
[[nodiscard]] bool module_said(int number);

// The number of a message: message_number(PIX_MSG_...), with a name of host/messages.h.
constexpr int message_number(int number, int /*severity*/, const char * /*words*/)
{
    return number;
}
