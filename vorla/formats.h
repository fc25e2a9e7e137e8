// The picture formats that are exported to and imported from: one table. A new format is a row in
// formats.cpp and a file with its two functions.
#pragma once

#include "vorla/options.h"
#include "vorla/picture.h"

#include <cstdio>
#include <memory>
#include <string_view>

// The functions of a format throw a Failure and use `name` for messages. They do not close the
// stream, which must outlive the result.
using OpenPicture = std::unique_ptr<RowReader>(FILE *stream, const std::string &name,
                                               const Options &options);
using StartPicture = std::unique_ptr<RowWriter>(FILE *stream, const std::string &name,
                                                const PictureShape &shape, const Options &options);

struct PictureFormat {
    const char *name; // as of --to; "." and this is the extension
    const char *words;
    std::string_view first_bytes;
    bool has_linear;     // takes the options of linear colour and of depth
    OpenPicture *open;   // null when the program is built without the format
    StartPicture *start; // the same
};

// Each finds the format: by its name ("png"), by the extension of a file name, or by the first
// bytes of a stream, which is then rewound. Null when there is none.
[[nodiscard]] const PictureFormat *format_named(const std::string &name);
[[nodiscard]] const PictureFormat *format_of_name(const std::string &file);
[[nodiscard]] const PictureFormat *format_of_stream(FILE *stream);

// Names the kind of file, other than PIX, that these bytes begin, such as "a PNG file"; "" if it is
// not known.
[[nodiscard]] std::string what_begins_with(const uint8_t *bytes, size_t size);

// The scale of a view of a depth: `nearest` is white and `farthest` black. Depths from
// PIX_DEPTH_LIMIT on are black too and do not count for the scale. Empty when nearest > farthest.
struct DepthRange {
    int32_t nearest = INT32_MAX;
    int32_t farthest = INT32_MIN;
};

// Starts a 16-bit grey PNG of the depth of a picture of that shape, with `comment` as its Comment.
[[nodiscard]] std::unique_ptr<RowWriter>
start_depth_view(FILE *stream, const std::string &name, const PictureShape &shape,
                 const Options &options, const DepthRange &range, const std::string &comment);
