// The loaded module and the choices that all commands share, where the module is found, and what it
// has said.
#pragma once

#include "standin/standin.h"
#include "vorla/options.h"

// How pictures are opened.
struct Session {
    const Options &options;
    int32_t channels; // value of the capability request; undecided: none
    std::string module_path;
    StandinModule module = {};

    // Loads the module that the options name; else the one beside the program, else in
    // ../lib/vorla/modules from there. Throws a Failure, EXIT_MODULE.
    explicit Session(const Options &chosen);
    ~Session()
    {
        standin_unload(&module);
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
};

// The texts of the module's messages since forget_messages.
[[nodiscard]] const std::vector<std::string> &module_messages();
void forget_messages();

// True when the module has issued a message since then: module_said(PIX_MSG_...), with a name of
// host/messages.h.
[[nodiscard]] bool module_said(int number, int severity, const char *words);
