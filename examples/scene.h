// A picture in memory, as the demo holds it, and the scene that fills one: shaded spheres on a
// chequered ground under an evening sky.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <vector>

enum { RED, GREEN, BLUE, MATTE }; // places in Picture::bytes

// Samples stand row after row from the top; a channel that is absent is empty.
struct Picture {
    // All samples are 0, and all depths are PIX_DEPTH_LIMIT. Sizes are not negative.
    Picture(int32_t columns, int32_t rows, bool has_colour, bool has_matte, bool has_depth);

    // Index of the first sample of a row in a channel.
    [[nodiscard]] size_t row_start(int32_t row) const
    {
        return static_cast<size_t>(row) * static_cast<size_t>(width);
    }

    bool operator==(const Picture &) const = default;

    int32_t width;                             // pixels
    int32_t height;                            // rows
    std::array<std::vector<uint8_t>, 4> bytes; // red, green, blue, matte
    std::vector<int32_t> depth;                // 1 (near) to PIX_DEPTH_LIMIT (nothing is there)
};

// Renders all five channels, for square pixels; both sizes are positive. Colour and matte (how much
// of a pixel the spheres cover) are antialiased. Depth is along the view axis, at the middle of the
// pixel: the mean of two depths would be a place where nothing is.
[[nodiscard]] Picture render_scene(int32_t width, int32_t height);
