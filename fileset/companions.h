// The companions of a set that is being opened. One that cannot be had is left out: the open goes
// on without it.
#pragma once

#include "fileset/names.h"
#include "fileset/state.h"

// Opens the companions that the channel choice asks for, as far as they are there, and sets their
// counts in `info`. Says nothing of those that are missing.
void pix_open_read_companions(PixState *state, const PixNames *names, ImageInfo *info);

// Creates the companions that `info` describes and the channel choice allows, and their
// directories. Warns of one that cannot be made, with PIX_CANNOT_OPEN, and takes it out of `info`.
void pix_open_write_companions(PixState *state, const PixNames *names, ImageInfo *info);
