// Opening a file set: from the host's name to open streams.
#pragma once

#include "fileset/state.h"

// Opens the main file, or the pair of field files, and the companions that the channel choice asks
// for, with fopen's `mode` "r" or "w". The name of standard input (reading) or output (writing)
// means that stream. Sets the planes of the state, which are present as far as companions were
// opened, and the counts of mattes and auxiliary channels in the handle's ImageInfo; a companion
// that cannot be opened is left out. Returns 0; or, when the main file cannot be opened, named or
// told from a matte, the code of the reason, after it has reported PIX_CANNOT_OPEN. Whatever was
// opened until then is in the state.
[[nodiscard]] int pix_open_file_set(ImageHandle *handle, PixState *state, const char *mode);

// Opens or creates the companions that the channel choice asks for and, when writing, `info`
// describes, with fopen's `mode`; makes their directories when writing. A companion that cannot be
// opened is left out, in writing with a warning and PIX_CANNOT_OPEN. Sets the counts in `info` to
// what is open; when writing leaves them alone where no such companion is to be made.
void pix_open_companions(PixState *state, const PixNames *names, const char *mode, ImageInfo *info);
