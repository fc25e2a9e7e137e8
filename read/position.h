// Bringing the files of an image that is read to a row. A run-length file has no index, so where
// its rows begin is remembered as they are passed, and an earlier row is sought there.
#pragma once

#include "fileset/state.h"

// Makes the table of row starts of an image whose files stand at their first rows. Without a table,
// earlier rows are reached from the header: when there is no memory for it, and on standard input,
// which the host's other users may move between two rows.
void pix_start_table(PixState *state);

// Brings all files to `row`: by seeking to the nearest row before it that is known, where that is
// needed or saves time, and by passing over the rows from there on, which count as read. Returns 0;
// or PIX_READ_FAILED, without a change of the count, when the image is lost.
[[nodiscard]] int pix_go_to_row(PixState *state, uint32_t row);
