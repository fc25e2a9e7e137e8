// PNG files through the simplified interface of libpng, which reports errors by returning; the full
// one jumps out of its callers past their destructors.
#include "examples/png_writer.h"

#include "format/depth.h"

#include <png.h>

#include <algorithm>

static std::string write_png(const std::string &path, const Picture &picture, uint32_t format,
                             const void *samples)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<uint32_t>(picture.width);
    image.height = static_cast<uint32_t>(picture.height);
    image.format = format;
    const int written = png_image_write_to_file(&image, path.c_str(), 0, samples, 0, nullptr);
    return written ? "" : path + ": " + image.message;
}

static std::string write_colour_png(const std::string &path, const Picture &picture)
{
    std::vector<uint8_t> samples;
    for (size_t i = 0; i < picture.channels[RED].size(); ++i) {
        for (const Channel channel : {RED, GREEN, BLUE}) {
            samples.push_back(static_cast<uint8_t>(picture.channels[channel][i]));
        }
    }
    return write_png(path, picture, PNG_FORMAT_RGB, samples.data());
}

static std::string write_matte_png(const std::string &path, const Picture &picture)
{
    const std::vector<int32_t> &matte = picture.channels[MATTE];
    const std::vector<uint8_t> samples(matte.begin(), matte.end());
    return write_png(path, picture, PNG_FORMAT_GRAY, samples.data());
}

static std::string write_depth_png(const std::string &path, const Picture &picture)
{
    const std::vector<int32_t> &depth = picture.channels[DEPTH];
    const int64_t white = int64_t{65535} * *std::min_element(depth.begin(), depth.end());
    std::vector<uint16_t> samples;
    for (const int32_t sample : depth) {
        const int64_t grey = sample == PIX_DEPTH_LIMIT ? 0 : white / sample;
        samples.push_back(static_cast<uint16_t>(grey));
    }
    return write_png(path, picture, PNG_FORMAT_LINEAR_Y, samples.data());
}

std::string write_pngs(const std::string &directory, const Picture &picture)
{
    std::string failure = write_colour_png(directory + "/colour.png", picture);
    if (failure.empty()) {
        failure = write_matte_png(directory + "/matte.png", picture);
    }
    return failure.empty() ? write_depth_png(directory + "/depth.png", picture) : failure;
}
