// A picture in memory, as the example host holds it, its way into row buffers and out of them, and
// the scene that fills one: shaded spheres on a chequered ground under an evening sky.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

// The channels of a picture, in the order of the host's row buffers.
enum Channel { RED, GREEN, BLUE, MATTE, DEPTH, CHANNELS };

// Samples are 0 to 255, those of depth 1 (near) to PIX_DEPTH_LIMIT, which stands for nothing.
struct Picture {
    int32_t width = 0;                       // pixels
    int32_t height = 0;                      // rows
    std::vector<int32_t> channels[CHANNELS]; // row after row from the top; empty when absent
};

// Index of the first sample of a row in a channel.
[[nodiscard]] inline size_t row_start(const Picture &picture, int32_t row)
{
    return static_cast<size_t>(row) * static_cast<size_t>(picture.width);
}

// A picture with the channels that are asked for, all samples 0. Sizes are not negative.
[[nodiscard]] Picture make_picture(int32_t width, int32_t height, bool colour, bool matte,
                                   bool depth);

// Copy a row to the host's row buffers or from them: one buffer for each channel that the picture
// has, of int32_t for depth and of bytes for the others.
void copy_row_to(void *const *buffers, const Picture &picture, int32_t row);
void copy_row_from(const void *const *buffers, Picture *picture, int32_t row);

// Every other row of a picture with all channels: `first` 0 for the even field, 1 for the odd.
[[nodiscard]] Picture field_of(const Picture &picture, int32_t first);

// The first difference in words: of size, of channels present, or of a sample. Empty without one.
[[nodiscard]] std::string find_difference(const Picture &expected, const Picture &found);

// Renders all five channels, for square pixels; both sizes are positive. Colour and matte (how much
// of a pixel the spheres cover) are antialiased. Depth is along the view axis, at the middle of the
// pixel: the mean of two depths would be a place where nothing is.
[[nodiscard]] Picture render_scene(int32_t width, int32_t height);
