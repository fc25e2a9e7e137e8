// The files of a PIX picture that import makes: where they will stand, and the same set under
// temporary names, which the module writes.
#pragma once

#include "vorla/pending.h"
#include "vorla/picture.h"

// Checks that the picture `output` can be made: its name is one that a set can have (EXIT_USAGE),
// and, unless `overwrite`, neither it, nor a field of it, nor what would become its companion is
// there (EXIT_IO).
[[nodiscard]] ExitCode check_set(const std::string &output, const PictureShape &shape,
                                 bool overwrite);

// Makes empty files under temporary names for the main file, which is the first, and its
// companions, and the companions' directories.
[[nodiscard]] ExitCode add_set(PendingSet *set, const std::string &output,
                               const PictureShape &shape);

// The companions of `output` that a picture of that shape does not have: once it stands under its
// name, files there would be taken for its own.
[[nodiscard]] std::vector<std::string> foreign_companions(const std::string &output,
                                                          const PictureShape &shape);
