// What export and import have in common: the shape of a picture, and reading or writing one row by
// row from the top. Rows are arrays as the module has them: red, green and blue if there is colour
// (one byte a pixel), then matte, then depth (int32_t a pixel).
#pragma once

#include "format/header.h"
#include "vorla/report.h"

#include <vector>

struct PictureShape {
    int32_t width = 0;
    int32_t height = 0;
    bool colour = false;
    bool matte = false;
    bool depth = false;
    float pixel_aspect = 1; // width to height of a pixel as shown
};

// The indices of the matte and the depth of a picture in its row array. Rows before the depth are
// rows of bytes.
inline size_t matte_index(const PictureShape &shape)
{
    return shape.colour ? 3 : 0;
}

inline size_t depth_index(const PictureShape &shape)
{
    return matte_index(shape) + (shape.matte ? 1 : 0);
}

// Buffers for a row of the shape, the depths in the last; each has room for depths. `array` is what
// the module and the readers take.
struct RowBuffers {
    std::vector<std::vector<int32_t>> buffers;
    std::vector<void *> array;

    explicit RowBuffers(const PictureShape &shape)
        : buffers(depth_index(shape) + (shape.depth ? 1 : 0),
                  std::vector<int32_t>(static_cast<size_t>(shape.width)))
    {
        for (std::vector<int32_t> &buffer : buffers) {
            array.push_back(buffer.data());
        }
    }
};

// A picture that is being written. Both functions throw a Failure. The stream that the picture goes
// to is the caller's, and outlives the writer.
struct RowWriter {
    virtual ~RowWriter() = default;
    virtual void write_row(void *const *rows) = 0;
    // Writes what follows the last row; buffers of the stream may still hold some of it.
    virtual void finish() = 0;
};

// A picture that is being read, the stream as with RowWriter. Both functions throw a Failure:
// EXIT_DAMAGED for what is in the file, EXIT_IO for what keeps it from being read.
struct RowReader {
    PictureShape shape;
    std::vector<std::string> notes; // what is left out or changed, a line each; whole after finish
    virtual ~RowReader() = default;
    virtual void read_row(void *const *rows) = 0;
    // Reads what follows the last row.
    virtual void finish() = 0;

  protected:
    // Adds a note of the parts, numbers too.
    template <class... Parts>
    void note_if(bool is_worth_it, const Parts &...parts)
    {
        if (is_worth_it) {
            notes.push_back(text_of(parts...));
        }
    }

    // Refuses a picture that is larger than a PIX file can be.
    void set_size(const std::string &name, int64_t width, int64_t height)
    {
        if (width > PIX_MAX_SIZE || height > PIX_MAX_SIZE) {
            throw Failure(EXIT_DAMAGED, name, "cannot import: the picture has ", width, " x ",
                          height, " pixels; PIX goes up to ", PIX_MAX_SIZE, " x ", PIX_MAX_SIZE);
        }
        shape.width = static_cast<int32_t>(width);
        shape.height = static_cast<int32_t>(height);
    }
};
