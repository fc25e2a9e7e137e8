// What export and import have in common: the shape of a picture, and reading or writing one row by
// row from the top. Rows are arrays as the module has them: red, green and blue if there is colour
// (one byte a pixel), then matte, then depth (int32_t a pixel).
#pragma once

#include "format/header.h"
#include "vorla/report.h"

#include <cstdint>
#include <string>

struct PictureShape {
    int32_t width = 0;
    int32_t height = 0;
    bool colour = false;
    bool matte = false;
    bool depth = false;
    float pixel_aspect = 1; // width to height of a pixel as shown
};

// Where the matte and the depth of a picture stand in its row array.
inline int matte_index(const PictureShape &shape)
{
    return shape.colour ? 3 : 0;
}

inline int depth_index(const PictureShape &shape)
{
    return matte_index(shape) + (shape.matte ? 1 : 0);
}

// A picture that is being written. Both functions have complained unless they return EXIT_FINE. The
// stream that the picture goes to is the caller's, and outlives the writer.
struct RowWriter {
    virtual ~RowWriter() = default;
    [[nodiscard]] virtual ExitCode write_row(void *const *rows) = 0;
    // Writes what follows the last row; buffers of the stream may still hold some of it.
    [[nodiscard]] virtual ExitCode finish() = 0;
};

// A picture that is being read, the stream as with RowWriter. Both functions have complained unless
// they return EXIT_FINE: EXIT_DAMAGED for what is in the file, EXIT_IO for what keeps it from being
// read.
struct RowReader {
    PictureShape shape;
    virtual ~RowReader() = default;
    [[nodiscard]] virtual ExitCode read_row(void *const *rows) = 0;
    // Reads what follows the last row.
    [[nodiscard]] virtual ExitCode finish() = 0;
};

// Complains of a picture that is larger than a PIX file can be.
[[nodiscard]] inline ExitCode check_size(const std::string &name, int64_t width, int64_t height)
{
    if (width <= PIX_MAX_SIZE && height <= PIX_MAX_SIZE) {
        return EXIT_FINE;
    }
    const std::string most = std::to_string(PIX_MAX_SIZE);
    complain(name, "cannot import: the picture has " + std::to_string(width) + " x " +
                       std::to_string(height) + " pixels; PIX goes up to " + most + " x " + most);
    return EXIT_DAMAGED;
}
