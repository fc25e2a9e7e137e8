// The run-length loops, one per direction, for colour and matte packets alike. Packets pass through
// the stream's own buffer with calls that are inlined and do not lock; the row locks the stream
// once, for a standard stream may be in the hands of the host's other threads too.
#include "format/rows.h"

#include "format/stream.h"
#include "host/messages.h"

#include <emmintrin.h> // SSE2, which every x86-64 has

constexpr int32_t PIX_BLOCK = sizeof(__m128i); // pixels of one channel handled at once

// --- Reading --------------------------------------------------------------------------------

// Fills `count` pixels from `start` on. Most runs are short, and what costs then is a length that
// the processor cannot predict: a short run is one store of fixed size, as long as that stays
// inside the row. What it spills is overwritten by the packets that follow.
static inline void pix_fill_run(uint8_t *row, int32_t width, int32_t start, uint8_t count,
                                uint8_t value)
{
    if (count <= PIX_BLOCK && start + PIX_BLOCK <= width) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(row + start),
                         _mm_set1_epi8(static_cast<char>(value)));
    } else {
        memset(row + start, value, count);
    }
}

// Reads one row, or passes over it when `rows` is null. Packet byte k belongs to channel
// Channels - k: on disk blue comes first, in the buffers red.
template <int Channels>
[[nodiscard]] static int pix_read_packets(FILE *fp, int32_t width, void *const *rows, long *size)
{
    int32_t total = 0;
    long packets = 0;
    int result = PIX_OK;
    while (total < width) {
        uint8_t packet[1 + Channels];
        if (!pix_read_bytes<1 + Channels>(fp, packet)) {
            result = PIX_READ_FAILED;
            break;
        }
        ++packets;
        const int32_t start = total;
        total += packet[0];
        if (!rows) {
            continue;
        }
        if (total > width) {
            result = PIX_UNDECODABLE;
            break;
        }
        for (int channel = 0; channel < Channels; ++channel) {
            pix_fill_run(static_cast<uint8_t *>(rows[channel]), width, start, packet[0],
                         packet[Channels - channel]);
        }
    }
    *size += packets * (1 + Channels);
    return result;
}

template <int Channels>
[[nodiscard]] static int pix_read_row(FILE *fp, int32_t width, void *const *rows, long *size)
{
    flockfile(fp);
    const int result = pix_read_packets<Channels>(fp, width, rows, size);
    funlockfile(fp);
    return result;
}

int pix_read_colour_row(FILE *fp, int32_t width, void *const rows[3], long *size)
{
    return pix_read_row<PIX_COLOUR_CHANNELS>(fp, width, rows, size);
}

int pix_read_matte_row(FILE *fp, int32_t width, void *row, long *size)
{
    return pix_read_row<PIX_MATTE_CHANNELS>(fp, width, &row, size);
}

int pix_skip_colour_row(FILE *fp, int32_t width, long *size)
{
    return pix_read_row<PIX_COLOUR_CHANNELS>(fp, width, nullptr, size);
}

int pix_skip_matte_row(FILE *fp, int32_t width, long *size)
{
    return pix_read_row<PIX_MATTE_CHANNELS>(fp, width, nullptr, size);
}

// --- Writing --------------------------------------------------------------------------------

// Appends `count` pixels equal to pixel `at`, in packets of at most PIX_MAX_RUN. A packet is put
// together as a number, its first byte lowest: bytes stored one by one and fetched together stall.
template <int Channels>
[[nodiscard]] static inline bool pix_put_run(FILE *fp, void *const *rows, int32_t at, int32_t count)
{
    uint32_t pixel = 0;
    for (int channel = 0; channel < Channels; ++channel) {
        const uint32_t value = static_cast<const uint8_t *>(rows[channel])[at];
        pixel |= value << (8 * (Channels - channel));
    }
    while (count > 0) {
        const int32_t run = count < PIX_MAX_RUN ? count : PIX_MAX_RUN;
        const uint32_t packet = pixel | static_cast<uint32_t>(run);
        if (!pix_write_bytes<1 + Channels>(fp, &packet)) {
            return false;
        }
        count -= run;
    }
    return true;
}

// Compares PIX_BLOCK pixels from `at` on with their right neighbours, all channels at once: bit i
// of the result is set when pixel at + i ends a run. No branch depends on a pixel.
template <int Channels>
[[nodiscard]] static inline uint32_t pix_run_ends(void *const *rows, int32_t at)
{
    __m128i equal = _mm_set1_epi8(-1);
    for (int channel = 0; channel < Channels; ++channel) {
        const uint8_t *pixels = static_cast<const uint8_t *>(rows[channel]) + at;
        const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i *>(pixels));
        const __m128i right = _mm_loadu_si128(reinterpret_cast<const __m128i *>(pixels + 1));
        equal = _mm_and_si128(equal, _mm_cmpeq_epi8(here, right));
    }
    return static_cast<uint32_t>(_mm_movemask_epi8(equal)) ^ 0xFFFFU;
}

// The same for one pixel, where the row has no room for a block.
template <int Channels>
[[nodiscard]] static inline bool pix_ends_run(void *const *rows, int32_t at)
{
    for (int channel = 0; channel < Channels; ++channel) {
        const uint8_t *pixels = static_cast<const uint8_t *>(rows[channel]) + at;
        if (pixels[0] != pixels[1]) {
            return true;
        }
    }
    return false;
}

template <int Channels>
[[nodiscard]] static int pix_write_packets(FILE *fp, int32_t width, void *const *rows)
{
    int32_t start = 0; // of the run that is not written yet
    int32_t at = 0;
    for (; width - at > PIX_BLOCK; at += PIX_BLOCK) {
        for (uint32_t ends = pix_run_ends<Channels>(rows, at); ends != 0; ends &= ends - 1) {
            const int32_t next = at + __builtin_ctz(ends) + 1;
            if (!pix_put_run<Channels>(fp, rows, start, next - start)) {
                return PIX_WRITE_FAILED;
            }
            start = next;
        }
    }
    for (; at < width; ++at) {
        if (at + 1 == width || pix_ends_run<Channels>(rows, at)) {
            if (!pix_put_run<Channels>(fp, rows, start, at + 1 - start)) {
                return PIX_WRITE_FAILED;
            }
            start = at + 1;
        }
    }
    return PIX_OK;
}

template <int Channels>
[[nodiscard]] static int pix_write_row(FILE *fp, int32_t width, void *const *rows)
{
    flockfile(fp);
    const int result = pix_write_packets<Channels>(fp, width, rows);
    funlockfile(fp);
    return result;
}

int pix_write_colour_row(FILE *fp, int32_t width, void *const rows[3])
{
    return pix_write_row<PIX_COLOUR_CHANNELS>(fp, width, rows);
}

int pix_write_matte_row(FILE *fp, int32_t width, void *row)
{
    return pix_write_row<PIX_MATTE_CHANNELS>(fp, width, &row);
}
