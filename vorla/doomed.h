// What a signal that ends the program removes first: temporary files, and directories made for
// them.
#pragma once

#include <csignal>
#include <string>

// Holds the signals that end the program back while it lives, so that names on disk and the list
// change together.
struct SignalsHeld {
    sigset_t before;

    SignalsHeld();
    ~SignalsHeld();
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;
};

// Puts a path on the list; of two, the later goes first. The caller holds the signals. False, with
// errno, when the path or the list is too long.
[[nodiscard]] bool doom(const std::string &path, bool is_directory);

// Takes it off the list. The caller holds the signals.
void spare(const std::string &path);
