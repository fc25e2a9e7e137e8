// Making the pictures, and the loops that set the limits.
#include "bench/pictures.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include <emmintrin.h>

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
    if (name == "render") {
        return between(1, 10) <= 3 ? between(40, 340) : between(1, 3);
    }
    return 1;
}

Picture make_picture(const std::string &name, int channels)
{
    Picture picture = {name, std::vector<Bytes>(static_cast<size_t>(channels))};
    std::minstd_rand random(1);
    for (Bytes &plane : picture.planes) {
        plane.resize(size_t{WIDTH} * HEIGHT);
    }
    for (size_t row = 0; row < HEIGHT; ++row) {
        uint8_t value = 77;
        for (int32_t at = 0; at < WIDTH;) {
            const int run = std::min(run_of(name, random), WIDTH - at);
            value = static_cast<uint8_t>(name == "flat" ? 77 : value + 1 + random() % 200);
            for (Bytes &plane : picture.planes) {
                memset(&plane[row * WIDTH + static_cast<size_t>(at)], value,
                       static_cast<size_t>(run));
                value = static_cast<uint8_t>(value * 3);
            }
            at += run;
        }
    }
    return picture;
}

std::vector<void *> row_pointers(const Picture &picture, int32_t row)
{
    std::vector<void *> rows;
    for (const Bytes &plane : picture.planes) {
        rows.push_back(const_cast<uint8_t *>(&plane[static_cast<size_t>(row) * WIDTH]));
    }
    return rows;
}

// --- The least ------------------------------------------------------------------------------

template <int Channels>
static void decode_all(const Bytes &packets, void *const *rows)
{
    const uint8_t *packet = packets.data();
    const uint8_t *end = packet + packets.size();
    int32_t at = 0;
    for (; packet < end; packet += 1 + Channels) {
        const int32_t count = packet[0];
        for (int channel = 0; channel < Channels; ++channel) {
            uint8_t *row = static_cast<uint8_t *>(rows[channel]) + at;
            const uint8_t value = packet[Channels - channel];
            if (count <= 16 && at + 16 <= WIDTH) {
                _mm_storeu_si128(reinterpret_cast<__m128i *>(row),
                                 _mm_set1_epi8(static_cast<char>(value)));
            } else {
                memset(row, value, static_cast<size_t>(count));
            }
        }
        at += count;
        at = at == WIDTH ? 0 : at;
    }
}

void decode_packets(const Bytes &packets, int channels, void *const *rows)
{
    channels == 3 ? decode_all<3>(packets, rows) : decode_all<1>(packets, rows);
}

template <int Channels>
static uint8_t *encode_row(const Picture &picture, size_t row, uint8_t *out)
{
    const uint8_t *rows[Channels];
    for (size_t channel = 0; channel < Channels; ++channel) {
        rows[channel] = &picture.planes[channel][row * WIDTH];
    }
    int32_t start = 0;
    const auto put = [&](int32_t next) {
        while (start < next) {
            const int32_t run = std::min(next - start, 255);
            *out++ = static_cast<uint8_t>(run);
            for (int channel = Channels - 1; channel >= 0; --channel) {
                *out++ = rows[channel][start];
            }
            start += run;
        }
    };
    int32_t at = 0;
    for (; at + 16 < WIDTH; at += 16) {
        __m128i equal = _mm_set1_epi8(-1);
        for (const uint8_t *pixels : rows) {
            const auto load = [&](int32_t from) {
                return _mm_loadu_si128(reinterpret_cast<const __m128i *>(pixels + from));
            };
            equal = _mm_and_si128(equal, _mm_cmpeq_epi8(load(at), load(at + 1)));
        }
        uint32_t ends = static_cast<uint32_t>(_mm_movemask_epi8(equal)) ^ 0xFFFFU;
        for (; ends != 0; ends &= ends - 1) {
            put(at + __builtin_ctz(ends) + 1);
        }
    }
    for (; at < WIDTH; ++at) {
        const bool last = at + 1 == WIDTH;
        if (last || std::any_of(rows, rows + Channels,
                                [&](const uint8_t *p) { return p[at] != p[at + 1]; })) {
            put(at + 1);
        }
    }
    return out;
}

size_t encode_packets(const Picture &picture, Bytes *packets)
{
    uint8_t *out = packets->data();
    for (size_t row = 0; row < HEIGHT; ++row) {
        out = picture.planes.size() == 3 ? encode_row<3>(picture, row, out)
                                         : encode_row<1>(picture, row, out);
    }
    return static_cast<size_t>(out - packets->data());
}

void read_bytes(const std::string &path, Bytes *scratch)
{
    scratch->resize(65536);
    const int file = open(path.c_str(), O_RDONLY);
    while (read(file, scratch->data(), scratch->size()) > 0) {
    }
    close(file);
}

void write_bytes(const std::string &path, const Bytes &bytes, size_t size)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    for (size_t at = 0; at < size; at += 65536) {
        if (write(file, &bytes[at], std::min<size_t>(65536, size - at)) < 0) {
            abort();
        }
    }
    close(file);
}
