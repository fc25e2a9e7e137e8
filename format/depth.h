// Depth samples in memory: four bytes, big-endian. The host holds depth as one integer a pixel, in
// its own byte order.
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr size_t PIX_DEPTH_SAMPLE_SIZE = 4; // bytes
constexpr int32_t PIX_DEPTH_LIMIT = 100000000;

// How depth samples are stored.
enum PixDepthKind : int32_t { PIX_DEPTH_FLOAT = 1, PIX_DEPTH_INT = 2 };

// Turns samples from the byte order of files to the host's, or back, in place.
void pix_swap_samples(int32_t *samples, size_t count);

// Converts float samples as a file has them: 0 for exactly 1e8, PIX_DEPTH_LIMIT for all else, so
// that a float file reads as a coverage of two levels.
void pix_convert_floats(const uint8_t *bytes, size_t count, int32_t *samples);
