// Temporary files without a name, for what must be a file in which one can move about or must be
// whole before it is passed on.
#pragma once

#include <string>

// Makes one in $TMPDIR or /tmp; it is gone when it is closed. Throws a Failure.
[[nodiscard]] int make_spool();

// Copies all that `from` still holds to `to`. Throws a Failure: `source` or `target` cannot be read
// or written.
void copy_all(int from, const std::string &source, int to, const std::string &target);

// When standard input is a pipe or a terminal, reads it to its end into such a file, which becomes
// standard input. Throws a Failure.
void make_input_seekable();

// Throws a Failure when the name is that of a pipe.
void refuse_pipe(const std::string &name);
