// Depth rows: `width` samples of four bytes, big-endian, not compressed. The host holds depth as
// one integer a pixel, in its own byte order.
#pragma once

#include "format/header.h"

constexpr int32_t PIX_DEPTH_SAMPLE_SIZE = 4; // bytes
constexpr int32_t PIX_DEPTH_LIMIT = 100000000;

// Reads the row at which the stream stands into `buffer`. Integer samples are carried unchanged; a
// float sample becomes 0 when it is exactly 1e8 and PIX_DEPTH_LIMIT otherwise, so that a float file
// reads as a coverage of two levels. Any `kind` but the two stops the process. Returns 0, or
// PIX_READ_FAILED when the row ends early, and leaves the same in vyn__err; the buffer then holds
// integer samples as the file has them, or the float samples converted so far.
[[nodiscard]] int32_t pix_read_depth_row(FILE *fp, int32_t width, int32_t kind, int32_t *buffer);

// Passes over a row. Returns 0, or PIX_READ_FAILED when the stream cannot seek.
[[nodiscard]] int pix_skip_depth_row(FILE *fp, int32_t width);

// Appends a row of integer samples. Converts the host's buffer in place for the write and always
// back again. Returns 0 or PIX_WRITE_FAILED.
[[nodiscard]] int pix_write_depth_row(FILE *fp, int32_t width, int32_t *buffer);
