// Run-length rows: packets of a count and a value of one byte per channel. A row is a whole number
// of packets whose counts add up to its width. Which rows a file holds is left to the callers.
#pragma once

#include "format/packets.h"

#include <stdint.h>
#include <stdio.h>

// Read the row of `width` pixels at which the stream stands into one byte buffer per channel (red,
// green and blue, or the matte), and add the bytes of its packets to `size`. Return 0;
// PIX_READ_FAILED when a packet cannot be read whole; or PIX_UNDECODABLE when the counts pass
// `width`. After a failure the stream stands where reading stopped, and the buffers begin with the
// pixels of the packets before it; what is behind those is undefined.
[[nodiscard]] int pix_read_colour_row(FILE *fp, int32_t width, void *const rows[3], long *size);
[[nodiscard]] int pix_read_matte_row(FILE *fp, int32_t width, void *row, long *size);

// Pass over a row: the next one begins after the packet that reaches or passes `width`. Add the
// row's bytes to `size`. Return 0 or PIX_READ_FAILED.
[[nodiscard]] int pix_skip_colour_row(FILE *fp, int32_t width, long *size);
[[nodiscard]] int pix_skip_matte_row(FILE *fp, int32_t width, long *size);

// Append a row, one packet for each run of equal pixels. Return 0, or PIX_WRITE_FAILED when the
// stream does not take a packet.
[[nodiscard]] int pix_write_colour_row(FILE *fp, int32_t width, void *const rows[3]);
[[nodiscard]] int pix_write_matte_row(FILE *fp, int32_t width, void *row);
