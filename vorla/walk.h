// Finding the pictures in a directory.
#pragma once

#include "vorla/commands.h"

// Adds the pictures in `directory` and below to `found`, sorted: regular files that the module
// takes for PIX, that end in its extension or that have a companion, without the companions of
// others and without odd fields whose even field is there.
// EXIT_IO, after a complaint, when a directory cannot be read; the others are walked.
[[nodiscard]] ExitCode find_pictures(const Session &session, const std::string &directory,
                                     Names *found);
