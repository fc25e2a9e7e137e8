// Taking rows from the streams of an image, in file order.
#pragma once

#include "fileset/state.h"

// Reads the row at which the files stand into the host's row buffers, or passes over it when `rows`
// is null, plane by plane; counts it, and remembers where the next one begins. Returns 0; or
// PIX_READ_FAILED when a file does not have the whole row or cannot pass over it, PIX_UNDECODABLE
// when the counts of a row that is read pass its width. After a failure the row is not counted, the
// files stand where it happened and the buffers begin with the pixels before it.
[[nodiscard]] int pix_next_row(PixState *state, void *const *rows);

// Reads the depth row at which the stream stands into `buffer`. Integer samples are carried
// unchanged, float samples become two levels (format/depth). Any `kind` but the two stops the
// process. Returns 0, or PIX_READ_FAILED when the row ends early, and leaves the same in vyn__err;
// the buffer then holds integer samples as the file has them, or the float samples converted so
// far.
[[nodiscard]] int32_t pix_read_depth_row(FILE *fp, int32_t width, int32_t kind, int32_t *buffer);
