// Bringing the streams of an image that is read to a row. A run-length file has no index, so where
// its rows begin is remembered as they are passed, and an earlier row is sought there.
#pragma once

#include "fileset/state.h"

// Bytes that a row takes in the run-length files.
struct PixRowSize {
    long colour;
    long matte;
};

// Makes the table of row starts of an image whose streams stand at their first rows. Without one,
// earlier rows are reached from the header: when there is no memory for it, and on standard input,
// which the host's other users may move between two rows.
void pix_start_table(PixState *state);

// Brings the streams to `row`: by seeking to where it is known to begin, or else by passing over
// the rows before it, which count as consumed. Returns 0 or PIX_READ_FAILED.
[[nodiscard]] int pix_go_to_row(PixState *state, uint32_t row);

// Counts the row at which the streams stood as consumed, and remembers where the next one begins.
void pix_pass_row(PixState *state, PixRowSize size);
