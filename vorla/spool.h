// Standard input as the module wants it: a file in which it can move about.
#pragma once

#include "vorla/report.h"

#include <string>

// When standard input is a pipe or a terminal, reads it to its end into a temporary file without a
// name, in $TMPDIR or /tmp, which becomes standard input. EXIT_IO, with the reason in `why`, when
// that fails.
[[nodiscard]] ExitCode make_input_seekable(std::string *why);
