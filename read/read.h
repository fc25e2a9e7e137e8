// What the parts of reading share: rows from streams (rows), the files brought to a row (position),
// the scanline procedure (scanline).
#pragma once

#include "fileset/state.h"

// Reads the row at which the files stand into the host's row buffers, or passes over it when `rows`
// is null, plane by plane; counts it, and remembers where the next one begins. Returns 0; or
// PIX_READ_FAILED when a file does not have the whole row or cannot pass over it, PIX_UNDECODABLE
// when the counts of a row that is read pass its width. After a failure the row is not counted, the
// files stand where it happened and the buffers begin with the pixels before it.
[[nodiscard]] int pix_next_row(PixState *state, void *const *rows);

// Reads the depth row at which the stream stands into `buffer`. Integer samples are carried
// unchanged, float samples become two levels (format/depth). A `kind` that is not a PixDepthKind
// ends the process. Returns 0, or PIX_READ_FAILED when the row ends early, and leaves the same in
// vyn__err; the buffer then holds integer samples as the file has them, or the float samples
// converted so far.
[[nodiscard]] int32_t pix_read_depth_row(FILE *fp, int32_t width, int32_t kind, int32_t *buffer);

// Makes the table of row starts of an image whose files stand at their first rows. There is no
// table when there is no memory for it, and on standard input, whose position other code of the
// host may change between two rows. Earlier rows are then reached from the header.
void pix_start_table(PixState *state);

// Brings all files to `row`: by seeking to the nearest row before it that is known, where that is
// needed or saves time, and by passing over the rows from there on, which count as read. Returns 0;
// or PIX_READ_FAILED: when a seek fails, which leaves the image lost and the count as it was, and
// when a row cannot be passed over, which leaves the rows before it counted.
[[nodiscard]] int pix_go_to_row(PixState *state, uint32_t row);

// Reads scanline `y`, in any order, into the host's row buffers and stores their array in the
// `void **` that `out` points to. Returns 0, PIX_BAD_SCANLINE or PIX_READ_FAILED, and leaves the
// same in vyn__err. After a failure the counters count the rows passed before it, and the files
// stand where it happened.
extern "C" int32_t pix_read_scanline(PixState *state, int32_t y, void *out);
