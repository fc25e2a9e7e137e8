// Several pictures at a time. The module is for one thread at a time, so each picture has a process
// of its own.
#pragma once

#include "vorla/session.h"

// Runs the work on each of the pictures, told by its place in the list, as many at a time as the
// options say, and shows one progress line for them, with `name`. Results and complaints come whole
// and in order. Returns the highest exit code. An interrupt ends all processes.
[[nodiscard]] ExitCode run_batch(const Session &session, const std::string &name,
                                 const Names &pictures,
                                 const std::function<ExitCode(size_t)> &work);
