// The run-length loops, one per direction, for colour and matte packets alike, and a faster way
// through the short runs of colour that photographs and grain consist of.
#include "format/packets.h"

#include "format/shuffles.h"

#include <cpuid.h>
#include <string.h>
#include <tmmintrin.h> // SSE2, which every x86-64 has, and SSSE3

// A function that may use byte shuffles, and count bits: to be called where the processor can.
#define PIX_WITH_SHUFFLES __attribute__((target("ssse3,popcnt")))

constexpr int32_t PIX_BLOCK = sizeof(__m128i); // pixels of one channel handled at once
constexpr int32_t PIX_GROUP = 4;               // packets handled at once

static bool pix_detect_shuffles()
{
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    return __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & bit_SSSE3) != 0 &&
           (ecx & bit_POPCNT) != 0;
}

const bool pix_can_shuffle = pix_detect_shuffles();

static inline __m128i pix_load(const void *bytes)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(bytes));
}

static inline void pix_store(void *bytes, __m128i value)
{
    _mm_storeu_si128(static_cast<__m128i *>(bytes), value);
}

// The row's buffers as bytes, kept where the compiler knows that no store of a pixel changes them.
template <int Channels>
struct PixBuffers {
    uint8_t *channel[Channels];
};

template <int Channels>
static inline PixBuffers<Channels> pix_buffers(const PixRow *row)
{
    PixBuffers<Channels> buffers;
    for (int channel = 0; channel < Channels; ++channel) {
        buffers.channel[channel] = static_cast<uint8_t *>(row->buffers[channel]);
    }
    return buffers;
}

// --- Decoding -------------------------------------------------------------------------------

static inline __m128i pix_repeat(uint8_t value)
{
    return _mm_set1_epi8(static_cast<char>(value));
}

// Fills `count` pixels from `start` on, and no others.
static inline void pix_fill(uint8_t *start, int32_t count, uint8_t value)
{
    if (count < PIX_BLOCK) {
        memset(start, value, static_cast<size_t>(count));
        return;
    }
    uint8_t *const last = start + count - PIX_BLOCK;
    for (; start < last; start += PIX_BLOCK) {
        pix_store(start, pix_repeat(value));
    }
    pix_store(last, pix_repeat(value));
}

// Decodes packets one by one, at most `most` of them. Packet byte k belongs to channel
// Channels - k: on disk blue comes first, in the buffers red. Most runs are short, and what costs
// then is a length that the processor cannot predict: a short run is one store of fixed size, as
// long as that stays inside the row. What it spills is overwritten by the packets that follow.
template <int Channels>
[[gnu::always_inline]] static inline PixStop pix_decode_some(PixSpan *span, PixRow *row,
                                                             PixBuffers<Channels> to, int64_t most)
{
    for (; row->done < row->width && most > 0; --most) {
        if (span->end - span->at < 1 + Channels) {
            return PIX_STOP_SPAN;
        }
        const uint8_t *packet = span->at;
        span->at += 1 + Channels;
        if (packet[0] > row->width - row->done) {
            return PIX_STOP_WIDTH;
        }
        if (packet[0] <= PIX_BLOCK && row->done <= row->width - PIX_BLOCK) {
            for (int channel = 0; channel < Channels; ++channel) {
                pix_store(to.channel[channel] + row->done, pix_repeat(packet[Channels - channel]));
            }
        } else {
            for (int channel = 0; channel < Channels; ++channel) {
                pix_fill(to.channel[channel] + row->done, packet[0], packet[Channels - channel]);
            }
        }
        row->done += packet[0];
    }
    return PIX_STOP_ROW;
}

template <int Channels>
static PixStop pix_decode_plain(PixSpan *span, PixRow *row)
{
    PixSpan left = *span;
    PixRow part = *row;
    const PixStop stop = pix_decode_some(&left, &part, pix_buffers<Channels>(row), INT64_MAX);
    *span = left;
    *row = part;
    return stop;
}

// Decodes groups of four packets with 1 to 4 pixels each, while they last. The counts of a group
// choose a shuffle that gathers its 4 to 16 pixels of one channel.
PIX_WITH_SHUFFLES static inline void pix_decode_groups(PixSpan *span, PixRow *row,
                                                       PixBuffers<PIX_COLOUR_CHANNELS> to)
{
    while (span->end - span->at >= PIX_BLOCK && row->width - row->done >= PIX_BLOCK) {
        const __m128i packets = pix_load(span->at);
        const __m128i counts = _mm_shuffle_epi8(packets, _mm_set1_epi32(0x0C080400));
        const uint32_t above = static_cast<uint32_t>(_mm_cvtsi128_si32(counts)) - 0x01010101;
        if ((above & 0xFCFCFCFC) != 0) {
            return; // a count is 0 or above 4
        }
        // The two bits of each count, side by side, the first packet's lowest.
        const uint32_t index = (above * 0x01041040) >> 24;
        const __m128i red = pix_load(PIX_SPREADS.shuffle[index].from);
        const __m128i green = _mm_sub_epi8(red, _mm_set1_epi8(1));
        const __m128i blue = _mm_sub_epi8(red, _mm_set1_epi8(2));
        pix_store(to.channel[0] + row->done, _mm_shuffle_epi8(packets, red));
        pix_store(to.channel[1] + row->done, _mm_shuffle_epi8(packets, green));
        pix_store(to.channel[2] + row->done, _mm_shuffle_epi8(packets, blue));
        row->done += PIX_GROUP + static_cast<int32_t>((above * 0x01010101) >> 24);
        span->at += PIX_BLOCK;
    }
}

// Where a group does not fit, as many packets are decoded one by one, so that among long runs the
// test for a group is made once in four.
PIX_WITH_SHUFFLES static PixStop pix_decode_shuffling(PixSpan *span, PixRow *row)
{
    const PixBuffers<PIX_COLOUR_CHANNELS> to = pix_buffers<PIX_COLOUR_CHANNELS>(row);
    PixSpan left = *span;
    PixRow part = *row;
    PixStop stop = PIX_STOP_ROW;
    while (stop == PIX_STOP_ROW && part.done < part.width) {
        pix_decode_groups(&left, &part, to);
        stop = pix_decode_some(&left, &part, to, PIX_GROUP);
    }
    *span = left;
    *row = part;
    return stop;
}

// Passes over a row: 16 bytes of packets at a time while the row goes on behind them, then packet
// by packet.
template <int Channels> static PixStop pix_pass_over(PixSpan *span, PixRow *row)
{
    const __m128i is_count = Channels == 3 ? _mm_set1_epi32(0xFF) : _mm_set1_epi16(0xFF);
    while (span->end - span->at >= PIX_BLOCK) {
        const __m128i counts = _mm_and_si128(pix_load(span->at), is_count);
        const __m128i sums = _mm_sad_epu8(counts, _mm_setzero_si128());
        const int32_t sum = _mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4);
        if (sum >= row->width - row->done) {
            break;
        }
        row->done += sum;
        span->at += PIX_BLOCK;
    }
    while (row->done < row->width) {
        if (span->end - span->at < 1 + Channels) {
            return PIX_STOP_SPAN;
        }
        row->done += *span->at;
        span->at += 1 + Channels;
    }
    return PIX_STOP_ROW;
}

PixStop pix_decode(PixSpan *span, PixRow *row, bool shuffle)
{
    if (!row->buffers) {
        return row->channels == PIX_MATTE_CHANNELS ? pix_pass_over<PIX_MATTE_CHANNELS>(span, row)
                                                   : pix_pass_over<PIX_COLOUR_CHANNELS>(span, row);
    }
    if (row->channels == PIX_MATTE_CHANNELS) {
        return pix_decode_plain<PIX_MATTE_CHANNELS>(span, row);
    }
    return shuffle ? pix_decode_shuffling(span, row)
                   : pix_decode_plain<PIX_COLOUR_CHANNELS>(span, row);
}

// --- Encoding -------------------------------------------------------------------------------
// The row is passed over in blocks. The run that is open at the start of a block began at `done`;
// it is cut as soon as it has PIX_MAX_RUN pixels, so it is shorter there.

// Appends `count` pixels equal to pixel `done`, at most two packets full. A packet is put together
// as a number, its first byte lowest: bytes stored one by one and fetched together stall.
template <int Channels>
[[gnu::always_inline]] static inline uint8_t *pix_put_run(PixRow *row, PixBuffers<Channels> from,
                                                          int32_t count, uint8_t *out)
{
    uint32_t pixel = 0;
    for (int channel = 0; channel < Channels; ++channel) {
        pixel |= uint32_t{from.channel[channel][row->done]} << (8 * (Channels - channel));
    }
    row->done += count;
    if (count > PIX_MAX_RUN) {
        const uint32_t packet = pixel | PIX_MAX_RUN;
        memcpy(out, &packet, 1 + Channels);
        out += 1 + Channels;
        count -= PIX_MAX_RUN;
    }
    const uint32_t packet = pixel | static_cast<uint32_t>(count);
    memcpy(out, &packet, 1 + Channels);
    return out + 1 + Channels;
}

// Compares PIX_BLOCK pixels from `at` on with their right neighbours, all channels at once: bit i
// of the result is set when pixel at + i ends a run. No branch depends on a pixel.
template <int Channels>
[[gnu::always_inline]] static inline uint32_t pix_run_ends(PixBuffers<Channels> from, int32_t at)
{
    __m128i equal = _mm_set1_epi8(-1);
    for (int channel = 0; channel < Channels; ++channel) {
        const uint8_t *pixels = from.channel[channel] + at;
        equal = _mm_and_si128(equal, _mm_cmpeq_epi8(pix_load(pixels), pix_load(pixels + 1)));
    }
    return static_cast<uint32_t>(_mm_movemask_epi8(equal)) ^ 0xFFFFU;
}

// The same for one pixel, where the row has no room for a block.
template <int Channels>
static inline bool pix_ends_run(PixBuffers<Channels> from, int32_t at, int32_t width)
{
    bool equal = at + 1 < width;
    for (int channel = 0; equal && channel < Channels; ++channel) {
        equal = from.channel[channel][at] == from.channel[channel][at + 1];
    }
    return !equal;
}

// Appends one packet for each run that ends in a block.
template <int Channels>
[[gnu::always_inline]] static inline uint8_t *pix_put_ends(PixRow *row, PixBuffers<Channels> from,
                                                           int32_t at, uint32_t ends, uint8_t *out)
{
    for (; ends != 0; ends &= ends - 1) {
        out = pix_put_run(row, from, at + __builtin_ctz(ends) + 1 - row->done, out);
    }
    return out;
}

// Appends the packets of a block in which many runs end: makes a packet of every pixel and squeezes
// out those that end no run, four at a time. `open` pixels before the block belong to its first
// run.
PIX_WITH_SHUFFLES static inline uint8_t *pix_put_block(PixBuffers<PIX_COLOUR_CHANNELS> from,
                                                       int32_t at, int32_t open, uint32_t ends,
                                                       uint8_t *out)
{
    // Pixels from the start of the first run to here, and to the end of the run before: their
    // difference is the count of a run that ends here.
    const __m128i one_to_16 = _mm_setr_epi8(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16);
    const __m128i here = _mm_add_epi8(one_to_16, _mm_set1_epi8(static_cast<char>(open)));
    const __m128i bits = _mm_set1_epi64x(static_cast<long long>(0x8040201008040201));
    const __m128i spread =
        _mm_shuffle_epi8(_mm_cvtsi32_si128(static_cast<int>(ends)),
                         _mm_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1));
    const __m128i is_end = _mm_cmpeq_epi8(_mm_and_si128(spread, bits), bits);
    __m128i before = _mm_slli_si128(_mm_and_si128(is_end, here), 1);
    before = _mm_max_epu8(before, _mm_slli_si128(before, 1));
    before = _mm_max_epu8(before, _mm_slli_si128(before, 2));
    before = _mm_max_epu8(before, _mm_slli_si128(before, 4));
    before = _mm_max_epu8(before, _mm_slli_si128(before, 8));
    const __m128i counts = _mm_sub_epi8(here, before);
    const __m128i red = pix_load(from.channel[0] + at);
    const __m128i green = pix_load(from.channel[1] + at);
    const __m128i blue = pix_load(from.channel[2] + at);
    const __m128i front[] = {_mm_unpacklo_epi8(counts, blue), _mm_unpackhi_epi8(counts, blue)};
    const __m128i back[] = {_mm_unpacklo_epi8(green, red), _mm_unpackhi_epi8(green, red)};
    for (int group = 0; group < PIX_GROUP; ++group) {
        const int half = group / 2;
        const __m128i packets = group % 2 == 0 ? _mm_unpacklo_epi16(front[half], back[half])
                                               : _mm_unpackhi_epi16(front[half], back[half]);
        const uint32_t some = ends >> (PIX_GROUP * group) & 15;
        pix_store(out, _mm_shuffle_epi8(packets, pix_load(PIX_SQUEEZES.shuffle[some].from)));
        out += 4 * __builtin_popcount(some);
    }
    return out;
}

// Where fewer runs end in a block, one by one is faster.
constexpr int PIX_MANY_ENDS = 4;

PIX_WITH_SHUFFLES static inline uint8_t *pix_put_shuffling(PixRow *row,
                                                           PixBuffers<PIX_COLOUR_CHANNELS> from,
                                                           int32_t at, uint32_t ends, uint8_t *out)
{
    const int32_t open = at - row->done;
    if (open > PIX_MAX_RUN - PIX_BLOCK || __builtin_popcount(ends) < PIX_MANY_ENDS) {
        return pix_put_ends(row, from, at, ends, out);
    }
    row->done = at + 32 - __builtin_clz(ends);
    return pix_put_block(from, at, open, ends, out);
}

template <int Channels, bool Shuffle>
[[gnu::always_inline]] static inline size_t pix_encode_row(PixRow *row, uint8_t *bytes, size_t room)
{
    const PixBuffers<Channels> from = pix_buffers<Channels>(row);
    const uint8_t *const full = bytes + room - PIX_ENCODE_ROOM;
    uint8_t *out = bytes;
    PixRow part = *row;
    int32_t at = part.done;
    for (; part.width - at > PIX_BLOCK && out <= full; at += PIX_BLOCK) {
        const uint32_t ends = pix_run_ends(from, at);
        if constexpr (Shuffle) {
            out = pix_put_shuffling(&part, from, at, ends, out);
        } else {
            out = pix_put_ends(&part, from, at, ends, out);
        }
        if (at + PIX_BLOCK - part.done >= PIX_MAX_RUN) {
            out = pix_put_run(&part, from, PIX_MAX_RUN, out);
        }
    }
    for (; part.width - at <= PIX_BLOCK && at < part.width && out <= full; ++at) {
        if (pix_ends_run(from, at, part.width)) {
            out = pix_put_run(&part, from, at + 1 - part.done, out);
        }
    }
    row->done = part.done;
    return static_cast<size_t>(out - bytes);
}

PIX_WITH_SHUFFLES static size_t pix_encode_shuffling(PixRow *row, uint8_t *bytes, size_t room)
{
    return pix_encode_row<PIX_COLOUR_CHANNELS, true>(row, bytes, room);
}

size_t pix_encode(PixRow *row, uint8_t *bytes, size_t room, bool shuffle)
{
    if (row->channels == PIX_MATTE_CHANNELS) {
        return pix_encode_row<PIX_MATTE_CHANNELS, false>(row, bytes, room);
    }
    return shuffle ? pix_encode_shuffling(row, bytes, room)
                   : pix_encode_row<PIX_COLOUR_CHANNELS, false>(row, bytes, room);
}
