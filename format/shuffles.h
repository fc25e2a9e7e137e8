// Tables of byte shuffles for packets of colour, made by the compiler. A shuffle says for each of
// 16 bytes which byte of a group of four packets comes there.
#pragma once

#include <stddef.h>
#include <stdint.h>

struct PixShuffle {
    alignas(16) uint8_t from[16];
};

// For the pixels of a group: bits 2k and 2k + 1 of the index are the count of packet k less one.
// The bytes are those of red, which stand last in their packets.
struct PixSpreads {
    PixShuffle shuffle[256];
};

constexpr PixSpreads pix_make_spreads()
{
    PixSpreads spreads = {};
    for (size_t index = 0; index < 256; ++index) {
        size_t pixel = 0;
        for (size_t packet = 0; packet < 4; ++packet) {
            for (size_t count = (index >> 2 * packet & 3) + 1; count > 0; --count) {
                spreads.shuffle[index].from[pixel++] = static_cast<uint8_t>(4 * packet + 3);
            }
        }
        for (; pixel < 16; ++pixel) {
            spreads.shuffle[index].from[pixel] = 3; // behind the pixels: anything
        }
    }
    return spreads;
}

// For the packets of a group that are kept: bit k of the index says that packet k is.
struct PixSqueezes {
    PixShuffle shuffle[16];
};

constexpr PixSqueezes pix_make_squeezes()
{
    PixSqueezes squeezes = {};
    for (size_t index = 0; index < 16; ++index) {
        size_t at = 0;
        for (size_t byte = 0; byte < 16; ++byte) {
            if ((index >> byte / 4 & 1) != 0) {
                squeezes.shuffle[index].from[at++] = static_cast<uint8_t>(byte);
            }
        }
    }
    return squeezes;
}

constexpr PixSpreads PIX_SPREADS = pix_make_spreads();
constexpr PixSqueezes PIX_SQUEEZES = pix_make_squeezes();
