// The companions of a set that is being opened.
#pragma once

#include "fileset/names.h"
#include "fileset/state.h"

// Opens or creates the companions that the channel choice asks for and, when writing, `info`
// describes, with fopen's `mode`; makes their directories when writing. A companion that cannot be
// opened is left out, in writing with a warning and PIX_CANNOT_OPEN. Sets the counts in `info` to
// what is open.
void pix_open_companions(PixState *state, const PixNames *names, const char *mode, ImageInfo *info);
