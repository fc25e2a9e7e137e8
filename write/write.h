// What the two halves of writing share: the open installs the scanline procedure.
#pragma once

#include "fileset/state.h"

// Appends scanline `y`, which must be the next in file order (height - 1 down to 0), from the
// host's row-buffer array `buffers`, a `void **`. Returns 0, PIX_BAD_SCANLINE or PIX_WRITE_FAILED,
// and leaves the same in vyn__err. After a failed write the files hold part of the row.
extern "C" int32_t pix_write_scanline(PixState *state, int32_t y, void *buffers);
