// Tables of byte shuffles for packets of colour, made by the compiler. A shuffle gives, for each of
// 16 result bytes, the byte of a group of four packets that is copied there.
#pragma once

#include <stddef.h>
#include <stdint.h>

template <size_t Count>
struct PixShuffles {
    uint8_t from[Count][16];
};

// Spreads a group to its pixels: bits 2k and 2k + 1 of the index are the count of packet k less
// one. The bytes are those of red, the last of a packet. Bytes after the pixels are not used.
constexpr PixShuffles<256> PIX_SPREADS = [] {
    PixShuffles<256> spreads = {};
    for (size_t index = 0; index < 256; ++index) {
        size_t pixel = 0;
        for (size_t packet = 0; packet < 4; ++packet) {
            for (size_t left = (index >> 2 * packet & 3) + 1; left > 0; --left) {
                spreads.from[index][pixel++] = static_cast<uint8_t>(4 * packet + 3);
            }
        }
        for (; pixel < 16; ++pixel) {
            spreads.from[index][pixel] = 3;
        }
    }
    return spreads;
}();

// Gathers the packets of a group that are kept: bit k of the index is set to keep packet k.
constexpr PixShuffles<16> PIX_SQUEEZES = [] {
    PixShuffles<16> squeezes = {};
    for (size_t index = 0; index < 16; ++index) {
        size_t at = 0;
        for (size_t byte = 0; byte < 16; ++byte) {
            if ((index >> byte / 4 & 1) != 0) {
                squeezes.from[index][at++] = static_cast<uint8_t>(byte);
            }
        }
    }
    return squeezes;
}();
