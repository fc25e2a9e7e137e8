// Run-length rows in memory: packets of a count and one byte per channel, the last channel first. A
// row is a whole number of packets whose counts add up to its width. Where the bytes come from and
// where they go is left to the callers.
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr int32_t PIX_MAX_RUN = 255; // pixels in one packet
constexpr int32_t PIX_COLOUR_CHANNELS = 3;
constexpr int32_t PIX_MATTE_CHANNELS = 1;
constexpr size_t PIX_MAX_PACKET = 1 + PIX_COLOUR_CHANNELS; // bytes

// True when the processor has SSSE3, for byte shuffles, and POPCNT; they make short runs of colour
// fast. Callers pass it to the codec; tests pass false, too. Set when the module is loaded.
extern const bool pix_can_shuffle;

// A row on its way between packets and pixels.
struct PixRow {
    void *const *buffers; // one for each channel, a byte per pixel; null: the row is passed over
    int32_t channels;     // PIX_COLOUR_CHANNELS or PIX_MATTE_CHANNELS
    int32_t width;        // pixels
    int32_t done;         // pixels that are decoded, or encoded, so far
};

// Bytes of a file that are in memory.
struct PixSpan {
    const uint8_t *at;
    const uint8_t *end;
};

// Why decoding stopped.
enum PixStop {
    PIX_STOP_ROW,  // the row is complete
    PIX_STOP_SPAN, // no whole packet is left in the span
    PIX_STOP_WIDTH // the counts exceed the row's width; not an error when a row is passed over
};

// Decodes whole packets from the start of the span into the row, from pixel `done` on, and moves
// the span and `done` past them. A packet whose count exceeds the width is taken from the span but
// not stored. Writes no byte beyond the width; pixels from `done` on are undefined until the row is
// complete.
[[nodiscard]] PixStop pix_decode(PixSpan *span, PixRow *row, bool shuffle);

// The least room that pix_encode asks for.
constexpr size_t PIX_ENCODE_ROOM = 20 * PIX_MAX_PACKET;

// Encodes the row from pixel `done` on, one packet for each run of equal pixels, until the row is
// complete or fewer than PIX_ENCODE_ROOM of the `room` bytes are free. Moves `done` past the pixels
// whose packets are in `bytes` and returns how many bytes they take. What lies behind those in
// `bytes` is undefined.
[[nodiscard]] size_t pix_encode(PixRow *row, uint8_t *bytes, size_t room, bool shuffle);
