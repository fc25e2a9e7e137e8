// What the two halves of reading share: the open installs the scanline procedure.
#pragma once

#include "fileset/state.h"

// Reads scanline `y`, in any order, into the host's row buffers and stores their array in the
// `void **` that `out` points to. Returns 0, PIX_BAD_SCANLINE or PIX_READ_FAILED, and leaves the
// same in vyn__err. After a failure the counters count the rows passed before it, and the files
// stand where it happened.
extern "C" int32_t pix_read_scanline(PixState *state, int32_t y, void *out);
