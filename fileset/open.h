// Opening a file set: from the host's name to open streams.
#pragma once

#include "fileset/state.h"

// Opens the main file, or the pair of field files, and the companions that the channel choice asks
// for, with fopen's `mode` "r" or "w". The name of standard input (reading) or output (writing)
// means that stream. Marks the planes of the companions that were opened as present, and sets the
// counts of mattes and auxiliary channels in the handle's ImageInfo; a companion that cannot be
// opened is left out. Returns 0 or, after it has reported PIX_CANNOT_OPEN, the code of the reason:
// the main file cannot be opened, its name cannot be stored, or its bits a pixel cannot be read.
// What was opened before the failure is in the state.
[[nodiscard]] int pix_open_file_set(ImageHandle *handle, PixState *state, const char *mode);

// Opens or creates the companions that the channel choice asks for and, when writing, `info`
// describes, with fopen's `mode`; makes their directories when writing. A companion that cannot be
// opened is left out, in writing with a warning and PIX_CANNOT_OPEN. Sets the counts in `info` to
// the number of companions open; when writing, a count that asks for no companion is not changed.
void pix_open_companions(PixState *state, const PixNames *names, const char *mode, ImageInfo *info);
