// Making the pictures.
#include "bench/bench.h"

#include <string.h>

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
    return 1;
}

Picture make_picture(const std::string &name)
{
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
