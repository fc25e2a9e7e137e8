// The loaded module and the choices that all commands share, and where the module is found.
#pragma once

#include "standin/standin.h"
#include "vorla/report.h"

#include <string>

// How pictures are opened.
struct Session {
    StandinModule module = {};
    std::string module_path;
    int32_t channels = -1; // value of the capability request, or -1 for none
    bool search = false;   // open names through KV_IMG_DIR
};

// Loads the module at `path`; when that is empty, at $VORLA_MODULE, else beside the program, else
// in ../lib/vorla from there. EXIT_MODULE, after a complaint, when it cannot be loaded.
[[nodiscard]] ExitCode load_module(const std::string &path, Session *session);
