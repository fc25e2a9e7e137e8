// PNG files, row by row: 8 bits a sample both ways, and the 16-bit grey view of a depth. Values are
// carried as they are: no gamma, and colour is neither multiplied nor divided by the matte.
#pragma once

#include "vorla/picture.h"

#include <cstdio>
#include <memory>
#include <vector>

// Starts a PNG: RGB, RGBA with the matte as alpha, or grey for a matte alone; depth is passed over.
// `name` is for messages. Null after a failure, which has been complained of.
[[nodiscard]] std::unique_ptr<RowWriter> start_png(FILE *stream, const std::string &name,
                                                   const PictureShape &shape);

// What a view of a depth shows: `nearest` is white and `farthest` black, as is all from
// PIX_DEPTH_LIMIT on, which is no part of the scale. Empty when nearest > farthest.
struct DepthRange {
    int32_t nearest = INT32_MAX;
    int32_t farthest = INT32_MIN;
};

// Starts a 16-bit grey view of the depth of a picture of that shape, with `comment` as its Comment.
[[nodiscard]] std::unique_ptr<RowWriter> start_depth_view(FILE *stream, const std::string &name,
                                                          const PictureShape &shape,
                                                          const DepthRange &range,
                                                          const std::string &comment);

// Opens a PNG of any kind: grey becomes colour of equal channels, or the matte with `matte_only`,
// which refuses anything else (EXIT_USAGE); alpha and transparency become the matte; 16 bits are
// scaled to 8. An interlaced picture is held whole, any other one row at a time.
[[nodiscard]] ExitCode open_png(FILE *stream, const std::string &name, bool matte_only,
                                std::unique_ptr<RowReader> *reader);
