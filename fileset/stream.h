// One file of a set as a stream: opened with a buffer of the module's, closed with it, and what
// lies in the buffer of any stream.
#pragma once

#include "fileset/state.h"

// Opens a file with fopen and gives the stream a buffer, unless it comes with one or there is no
// memory. False, with errno, when the file cannot be opened.
[[nodiscard]] bool pix_open_file(PixFile *file, const char *name, const char *mode);

// Closes the stream, unless it is a standard stream, and releases its buffer. A file that is not
// open is left alone. False, with errno, when the stream did not close well.
bool pix_close_file(PixFile *file);

// True for the process's standard input and output, which the module never closes or removes.
[[nodiscard]] bool pix_is_standard_stream(const FILE *fp);

// The bytes that a stream which is read has in its buffer from its position on: none when it has no
// buffer, or when the C library does not show it. They are the stream's, and valid until it is used
// in another way. The caller has locked the stream, or is alone with it.
[[nodiscard]] PixSpan pix_look(FILE *fp);

// Moves the stream's position within its buffer, onward or back, as if so many bytes had been read
// or not been read. False, and nothing is done, when the buffer does not reach so far.
bool pix_consume(FILE *fp, long bytes);
