// A progress line on standard error: only on a terminal, only when the work has taken more than
// half a second, never when quiet.
#pragma once

#include <cstdint>
#include <string>

// Starts a piece of work of `total` steps, called `unit` ("rows", "files"), on `file`.
void start_progress(const std::string &file, int64_t total, const char *unit);

// So many steps are done.
void show_progress(int64_t done);

// Clears the line.
void end_progress();

// Clears the line for now, so that something else can be written there.
void wipe_progress();

// Turns progress off for good.
void be_quiet();
