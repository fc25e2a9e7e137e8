// The loaded module and the choices that all commands share, where the module is found, and what it
// has said.
#pragma once

#include "standin/standin.h"
#include "vorla/report.h"

#include <string>
#include <vector>

// How pictures are opened.
struct Session {
    StandinModule module = {};
    std::string module_path;
    int32_t channels = PIX_CHANNELS_UNDECIDED; // value of the capability request; undecided: none
    bool search = false;                       // open names through KV_IMG_DIR
    int processes = 1;                         // at most so many at a time

    // Loads the module at `path`; when that is empty, at $VORLA_MODULE, else beside the program,
    // else in ../lib/vorla from there. Throws a Failure, EXIT_MODULE.
    explicit Session(const std::string &path);
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
