// One file of a set as a stream: opened and closed together with a buffer of the module's; and
// access to what lies in the buffer of any stream.
#pragma once

#include "fileset/state.h"

// Opens a file with fopen and gives the stream a buffer, unless the stream has one already or there
// is no memory. Returns false, with errno set, when the file cannot be opened.
[[nodiscard]] bool pix_open_file(PixFile *file, const char *name, const char *mode);

// Closes the stream, unless it is a standard stream, and releases its buffer. A file that is not
// open is left as it is. Returns false, with errno set, when closing failed.
bool pix_close_file(PixFile *file);

// True for the process's standard input and output, which the module never closes or removes.
[[nodiscard]] bool pix_is_standard_stream(const FILE *fp);

// Returns the bytes that the buffer of an input stream holds from the stream's position on: none
// when the stream has no buffer, or when the C library does not show the buffer. The bytes belong
// to the stream and are valid until another function uses the stream. The caller has locked the
// stream, or no other thread uses it.
[[nodiscard]] PixSpan pix_look(FILE *fp);

// Moves the stream's position by `bytes` (forward, or back when negative) within its buffer.
// Returns false, and does nothing, when the new position is outside the buffer.
bool pix_consume(FILE *fp, long bytes);
