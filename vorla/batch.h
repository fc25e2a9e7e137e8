// Several pictures at a time. The module is for one thread at a time, so each picture has a process
// of its own.
#pragma once

#include "vorla/session.h"

// Runs the work on each of the pictures, as many at a time as the options say, and shows one
// progress line for all, with `name`. The argument of the work is the index of the picture. Results
// and complaints are printed picture by picture, in order. Returns the highest exit code. An
// interrupt ends all processes.
[[nodiscard]] ExitCode run_batch(const Session &session, const std::string &name,
                                 const Names &pictures,
                                 const std::function<ExitCode(size_t)> &work);
