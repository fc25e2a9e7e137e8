// Making the pictures.
#include "bench/bench.h"

#include <stdio.h>
#include <string.h>

#include <jpeglib.h> // needs stdio.h

#include <algorithm>
#include <random>

static int run_of(const std::string &name, std::minstd_rand &random)
{
    const auto between = [&](int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(random);
    };
    if (name == "flat") {
        return WIDTH;
    }
    if (name == "short") {
        return between(1, 16);
    }
    if (name == "render" || name == "matte") {
        return between(1, 10) <= 3 ? between(40, 340) : between(1, 3);
    }
    if (name == "photo") { // 74 % of one pixel, 16 % of two, 6 % of three, 2 % of four
        const int part = between(1, 100);
        return part > 98 ? between(5, 16) : 1 + (part > 74) + (part > 90) + (part > 96);
    }
    return 1;
}

// The upper left of the photograph, which is larger.
static Picture read_photograph()
{
    FILE *file = fopen(PHOTOGRAPH, "r");
    if (!file) {
        return {};
    }
    jpeg_decompress_struct jpeg;
    jpeg_error_mgr errors;
    jpeg.err = jpeg_std_error(&errors); // ends the process
    jpeg_create_decompress(&jpeg);
    jpeg_stdio_src(&jpeg, file);
    jpeg_read_header(&jpeg, TRUE);
    jpeg.out_color_space = JCS_RGB;
    jpeg_start_decompress(&jpeg);
    Picture picture = {std::vector<Bytes>(3)};
    Bytes row(size_t{jpeg.output_width} * 3);
    for (int32_t y = 0; y < HEIGHT; ++y) {
        uint8_t *pixels = row.data();
        jpeg_read_scanlines(&jpeg, &pixels, 1);
        for (size_t x = 0; x < WIDTH * picture.planes.size(); ++x) {
            picture.planes[x % picture.planes.size()].push_back(row[x]);
        }
    }
    jpeg_destroy_decompress(&jpeg);
    fclose(file);
    return picture;
}

Picture make_picture(const std::string &name)
{
    if (name == "real") {
        return read_photograph();
    }
    Picture picture = {std::vector<Bytes>(name == "matte" ? 1 : 3, Bytes(size_t{WIDTH} * HEIGHT))};
    std::minstd_rand random(1);
    for (size_t row = 0; row < HEIGHT; ++row) {
        uint8_t value = 77;
        for (int32_t at = 0; at < WIDTH;) {
            const int run = std::min(run_of(name, random), WIDTH - at);
            value = static_cast<uint8_t>(name == "flat" ? 77 : value + 1 + random() % 200);
            uint8_t sample = value;
            for (Bytes &plane : picture.planes) {
                memset(&plane[row * WIDTH + static_cast<size_t>(at)], sample,
                       static_cast<size_t>(run));
                sample = static_cast<uint8_t>(sample * 3);
            }
            at += run;
        }
    }
    return picture;
}

void point_at_row(const Picture &picture, int32_t row, void **rows)
{
    for (const Bytes &plane : picture.planes) {
        *rows++ = const_cast<uint8_t *>(&plane[static_cast<size_t>(row) * WIDTH]);
    }
}
