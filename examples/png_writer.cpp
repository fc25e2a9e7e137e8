// PNG files through the simplified interface of libpng, which reports errors by returning; the full
// one jumps out of its callers past their destructors.
#include "examples/png_writer.h"

#include "format/depth.h"

#include <png.h>

#include <algorithm>
#include <stdexcept>

static void write_png(const std::string &path, const Picture &picture, uint32_t format,
                      const void *samples)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<uint32_t>(picture.width);
    image.height = static_cast<uint32_t>(picture.height);
    image.format = format;
    if (!png_image_write_to_file(&image, path.c_str(), 0, samples, 0, nullptr)) {
        throw std::runtime_error(path + ": " + image.message);
    }
}

void write_pngs(const std::string &directory, const Picture &picture)
{
    std::vector<uint8_t> colours;
    for (size_t i = 0; i < picture.bytes[RED].size(); ++i) {
        for (const size_t channel : {RED, GREEN, BLUE}) {
            colours.push_back(picture.bytes[channel][i]);
        }
    }
    write_png(directory + "/colour.png", picture, PNG_FORMAT_RGB, colours.data());
    write_png(directory + "/matte.png", picture, PNG_FORMAT_GRAY, picture.bytes[MATTE].data());

    const int64_t nearest = *std::min_element(picture.depth.begin(), picture.depth.end());
    std::vector<uint16_t> greys;
    for (const int32_t depth : picture.depth) {
        greys.push_back(
            static_cast<uint16_t>(depth == PIX_DEPTH_LIMIT ? 0 : 65535 * nearest / depth));
    }
    write_png(directory + "/depth.png", picture, PNG_FORMAT_LINEAR_Y, greys.data());
}
