// The table of picture formats, and the ways to find a row.
#include "vorla/formats.h"

#include "vorla/names.h"

#include <algorithm>
#include <cstring>

// Defined in png.cpp and exr.cpp. A program that is built without OpenEXR has no exr.cpp.
OpenPicture open_png;
StartPicture start_png;
[[gnu::weak]] OpenPicture open_exr;
[[gnu::weak]] StartPicture start_exr;

namespace {

const PictureFormat FORMATS[] = {
    {"png", "a PNG file", "\x89PNG\r\n", false, open_png, start_png},
    {"exr", "an OpenEXR file", "\x76\x2F\x31\x01", true, open_exr, start_exr},
};

template <class Test>
const PictureFormat *find(const Test &test)
{
    const auto *row = std::find_if(std::begin(FORMATS), std::end(FORMATS), test);
    return row == std::end(FORMATS) ? nullptr : row;
}

const PictureFormat *format_of_bytes(std::string_view bytes)
{
    return find([&](const PictureFormat &row) { return bytes.starts_with(row.first_bytes); });
}

} // namespace

const PictureFormat *format_named(const std::string &name)
{
    return find([&](const PictureFormat &row) { return name == row.name; });
}

const PictureFormat *format_of_name(const std::string &file)
{
    return find([&](const PictureFormat &row) { return ends_in(file, text_of(".", row.name)); });
}

const PictureFormat *format_of_stream(FILE *stream)
{
    char bytes[16];
    const size_t count = fread(bytes, 1, sizeof bytes, stream);
    (void)fseek(stream, 0, SEEK_SET); // unlike rewind, it keeps the mark of a read that failed
    return format_of_bytes({bytes, count});
}

std::string what_begins_with(const uint8_t *bytes, size_t size)
{
    const PictureFormat *format = format_of_bytes({reinterpret_cast<const char *>(bytes), size});
    const uint32_t magic = pix_long(bytes);
    const bool depth = magic == PIX_MAGIC_DEPTH_INT || magic == PIX_MAGIC_DEPTH_FLOAT;
    return format  ? std::string(format->words) + ", which vorla import reads"
           : depth ? "a depth file, which is opened with the main file of its picture"
                   : "";
}
