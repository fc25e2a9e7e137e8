// The run-length loops, one per direction, for colour and matte packets alike, and a faster way
// through the short runs of colour that photographs and grain consist of.
#include "format/packets.h"

#include "format/shuffles.h"

#include <initializer_list>
#include <string.h>

#include <tmmintrin.h> // SSE2, which every x86-64 has, and SSSE3

// A function that may use byte shuffles, and count bits: to be called where the processor can.
#define PIX_WITH_SHUFFLES __attribute__((target("ssse3,popcnt")))

// Row loops keep their state in registers only if what they call is inlined.
#define PIX_INLINE [[gnu::always_inline]] static inline

constexpr int32_t PIX_BLOCK = sizeof(__m128i); // pixels of one channel handled at once
constexpr int32_t PIX_GROUP = 4;               // packets handled at once

const bool pix_can_shuffle =
    __builtin_cpu_supports("ssse3") != 0 && __builtin_cpu_supports("popcnt") != 0;

static inline __m128i pix_load(const void *bytes)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(bytes));
}

static inline void pix_store(void *bytes, __m128i value)
{
    _mm_storeu_si128(static_cast<__m128i *>(bytes), value);
}

static inline __m128i pix_repeat(uint8_t value)
{
    return _mm_set1_epi8(static_cast<char>(value));
}

// The state of a row while it is coded. It is a copy of the PixRow: the compiler could not rule out
// that a store to a pixel changes the PixRow itself.
template <int Channels>
struct PixCursor {
    uint8_t *channel[Channels];
    int32_t width;
    int32_t done;
};

using PixColourCursor = PixCursor<PIX_COLOUR_CHANNELS>;

template <int Channels>
static inline PixCursor<Channels> pix_start(const PixRow *row)
{
    PixCursor<Channels> cursor = {{}, row->width, row->done};
    for (int channel = 0; channel < Channels; ++channel) {
        cursor.channel[channel] = static_cast<uint8_t *>(row->buffers[channel]);
    }
    return cursor;
}

// --- Decoding -------------------------------------------------------------------------------

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
// Channels - k: a packet has blue first, the buffers have red first. Most runs are short, and a
// length that the processor cannot predict is slow. So a short run is one store of fixed size, as
// long as the store stays inside the row; the packets that follow overwrite its surplus.
template <int Channels>
PIX_INLINE PixStop pix_decode_some(PixSpan *span, PixCursor<Channels> *to, int64_t most)
{
    for (; to->done < to->width && most > 0; --most) {
        if (span->end - span->at < 1 + Channels) {
            return PIX_STOP_SPAN;
        }
        const uint8_t *packet = span->at;
        span->at += 1 + Channels;
        if (packet[0] > to->width - to->done) {
            return PIX_STOP_WIDTH;
        }
        if (packet[0] <= PIX_BLOCK && to->done <= to->width - PIX_BLOCK) {
            for (int channel = 0; channel < Channels; ++channel) {
                pix_store(to->channel[channel] + to->done, pix_repeat(packet[Channels - channel]));
            }
        } else {
            for (int channel = 0; channel < Channels; ++channel) {
                pix_fill(to->channel[channel] + to->done, packet[0], packet[Channels - channel]);
            }
        }
        to->done += packet[0];
    }
    return PIX_STOP_ROW;
}

// Decodes groups of four packets with 1 to 4 pixels each, and stops before the first other packet.
// The counts of a group choose a shuffle that gathers its 4 to 16 pixels of one channel.
PIX_WITH_SHUFFLES static inline void pix_decode_groups(PixSpan *span, PixColourCursor *to)
{
    while (span->end - span->at >= PIX_BLOCK && to->width - to->done >= PIX_BLOCK) {
        const __m128i packets = pix_load(span->at);
        const __m128i counts = _mm_shuffle_epi8(packets, _mm_set1_epi32(0x0C080400));
        const __m128i less_one = _mm_sub_epi8(counts, pix_repeat(1));
        const auto above = static_cast<uint32_t>(_mm_cvtsi128_si32(less_one));
        if ((above & 0xFCFCFCFC) != 0) {
            return; // a count is 0 or above 4
        }
        // The two bits of each count, side by side, the first packet's lowest.
        const uint64_t index = (uint64_t{above} * 0x01041040 >> 24) & 0xFF;
        const __m128i red = pix_load(PIX_SPREADS.from[index]);
        const __m128i green = _mm_sub_epi8(red, pix_repeat(1));
        const __m128i blue = _mm_sub_epi8(red, pix_repeat(2));
        pix_store(to->channel[0] + to->done, _mm_shuffle_epi8(packets, red));
        pix_store(to->channel[1] + to->done, _mm_shuffle_epi8(packets, green));
        pix_store(to->channel[2] + to->done, _mm_shuffle_epi8(packets, blue));
        to->done += PIX_GROUP + static_cast<int32_t>((uint64_t{above} * 0x01010101 >> 24) & 0xFF);
        span->at += PIX_BLOCK;
    }
}

// When a group cannot be decoded at once, its four packets are decoded one by one. So among long
// runs the test for a group is made only once for four packets.
template <int Channels, bool Shuffle>
PIX_INLINE PixStop pix_decode_row(PixSpan *span, PixRow *row)
{
    PixSpan left = *span;
    PixCursor<Channels> to = pix_start<Channels>(row);
    PixStop stop = PIX_STOP_ROW;
    while (stop == PIX_STOP_ROW && to.done < to.width) {
        if constexpr (Shuffle) {
            pix_decode_groups(&left, &to);
        }
        stop = pix_decode_some(&left, &to, Shuffle ? PIX_GROUP : INT64_MAX);
    }
    *span = left;
    row->done = to.done;
    return stop;
}

PIX_WITH_SHUFFLES static PixStop pix_decode_shuffling(PixSpan *span, PixRow *row)
{
    return pix_decode_row<PIX_COLOUR_CHANNELS, true>(span, row);
}

// Passes over a row: adds up the counts of four blocks of packets at a time as long as the row does
// not end in them, then packet by packet.
static PixStop pix_pass_over(PixSpan *span, PixRow *row)
{
    constexpr ptrdiff_t stretch = ptrdiff_t{4} * PIX_BLOCK;
    const ptrdiff_t size = 1 + row->channels;
    const bool colour = row->channels == PIX_COLOUR_CHANNELS;
    const __m128i is_count = colour ? _mm_set1_epi32(0xFF) : _mm_set1_epi16(0xFF);
    while (row->done < row->width && span->end - span->at >= size) {
        __m128i sums = _mm_setzero_si128();
        const bool fits = span->end - span->at >= stretch;
        for (ptrdiff_t at = 0; fits && at < stretch; at += PIX_BLOCK) {
            const __m128i counts = _mm_and_si128(pix_load(span->at + at), is_count);
            sums = _mm_add_epi64(sums, _mm_sad_epu8(counts, _mm_setzero_si128()));
        }
        const int32_t sum = _mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4);
        const bool whole = fits && sum < row->width - row->done;
        row->done += whole ? sum : *span->at;
        span->at += whole ? stretch : size;
    }
    return row->done < row->width ? PIX_STOP_SPAN : PIX_STOP_ROW;
}

PixStop pix_decode(PixSpan *span, PixRow *row, bool shuffle)
{
    if (!row->buffers) {
        return pix_pass_over(span, row);
    }
    if (row->channels == PIX_MATTE_CHANNELS) {
        return pix_decode_row<PIX_MATTE_CHANNELS, false>(span, row);
    }
    return shuffle ? pix_decode_shuffling(span, row)
                   : pix_decode_row<PIX_COLOUR_CHANNELS, false>(span, row);
}

// --- Encoding -------------------------------------------------------------------------------
// The row is encoded in blocks. The run that is open at the start of a block began at `done`. There
// it has fewer than PIX_MAX_RUN pixels, because a longer run is cut at the end of a block.

// Appends a run of `count` pixels equal to pixel `done`, at most two full packets. A packet is
// built as an integer with its first byte lowest: storing bytes and then loading them as a word
// stalls the processor.
template <int Channels>
PIX_INLINE uint8_t *pix_put_run(PixCursor<Channels> *from, int32_t count, uint8_t *out)
{
    uint32_t pixel = 0;
    for (int channel = 0; channel < Channels; ++channel) {
        pixel |= uint32_t{from->channel[channel][from->done]} << (8 * (Channels - channel));
    }
    from->done += count;
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

// Compares PIX_BLOCK pixels from `at` on with their right neighbours, all channels at once: all
// bits of a byte are set where the run goes on behind the pixel. No branch depends on a pixel.
template <int Channels>
PIX_INLINE __m128i pix_go_on(const PixCursor<Channels> *from, int32_t at)
{
    __m128i equal = pix_repeat(0xFF);
    for (const uint8_t *channel : from->channel) {
        const __m128i right = pix_load(channel + at + 1);
        equal = _mm_and_si128(equal, _mm_cmpeq_epi8(pix_load(channel + at), right));
    }
    return equal;
}

// For one pixel, where the row has no room for a block: true when its run ends there.
template <int Channels>
static inline bool pix_ends_run(const PixCursor<Channels> *from, int32_t at)
{
    bool equal = at + 1 < from->width;
    for (int channel = 0; equal && channel < Channels; ++channel) {
        equal = from->channel[channel][at] == from->channel[channel][at + 1];
    }
    return !equal;
}

// Appends one packet for each run that ends in a block: bit i of `ends` stands for pixel at + i.
template <int Channels>
PIX_INLINE uint8_t *pix_put_ends(PixCursor<Channels> *from, int32_t at, uint32_t ends, uint8_t *out)
{
    for (; ends != 0; ends &= ends - 1) {
        out = pix_put_run(from, at + __builtin_ctz(ends) + 1 - from->done, out);
    }
    return out;
}

// Returns, at each pixel of a block that ends a run, the length of that run. `open` pixels of the
// first run lie before the block.
static inline __m128i pix_count_runs(__m128i go_on, int32_t open)
{
    // The length is the number of pixels up to here less that up to the end of the run before.
    const __m128i one_to_16 = _mm_setr_epi8(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16);
    const __m128i here = _mm_add_epi8(one_to_16, pix_repeat(static_cast<uint8_t>(open)));
    __m128i before = _mm_slli_si128(_mm_andnot_si128(go_on, here), 1);
    before = _mm_max_epu8(before, _mm_slli_si128(before, 1));
    before = _mm_max_epu8(before, _mm_slli_si128(before, 2));
    before = _mm_max_epu8(before, _mm_slli_si128(before, 4));
    before = _mm_max_epu8(before, _mm_slli_si128(before, 8));
    return _mm_sub_epi8(here, before);
}

// Where four runs or more end in a block, makes a packet of every pixel and then removes the
// packets of pixels that end no run, four packets at a time. Fewer runs are faster one by one.
PIX_WITH_SHUFFLES static inline uint8_t *pix_put_block(PixColourCursor *from, int32_t at,
                                                       __m128i go_on, uint32_t ends, uint8_t *out)
{
    const int32_t open = at - from->done;
    if (open > PIX_MAX_RUN - PIX_BLOCK || __builtin_popcount(ends) < 4) {
        return pix_put_ends(from, at, ends, out);
    }
    from->done = at + 32 - __builtin_clz(ends);
    const __m128i counts = pix_count_runs(go_on, open);
    const __m128i red = pix_load(from->channel[0] + at);
    const __m128i green = pix_load(from->channel[1] + at);
    const __m128i blue = pix_load(from->channel[2] + at);
    const __m128i front[] = {_mm_unpacklo_epi8(counts, blue), _mm_unpackhi_epi8(counts, blue)};
    const __m128i back[] = {_mm_unpacklo_epi8(green, red), _mm_unpackhi_epi8(green, red)};
    for (int half = 0; half < 2; ++half) {
        for (const __m128i packets : {_mm_unpacklo_epi16(front[half], back[half]),
                                      _mm_unpackhi_epi16(front[half], back[half])}) {
            const __m128i squeeze = pix_load(PIX_SQUEEZES.from[ends & 15]);
            pix_store(out, _mm_shuffle_epi8(packets, squeeze));
            out += PIX_MAX_PACKET * static_cast<size_t>(__builtin_popcount(ends & 15));
            ends >>= PIX_GROUP;
        }
    }
    return out;
}

template <int Channels, bool Shuffle>
PIX_INLINE size_t pix_encode_row(PixRow *row, uint8_t *bytes, size_t room)
{
    PixCursor<Channels> from = pix_start<Channels>(row);
    const uint8_t *const full = bytes + room - PIX_ENCODE_ROOM;
    uint8_t *out = bytes;
    int32_t at = from.done;
    for (; from.width - at > PIX_BLOCK && out <= full; at += PIX_BLOCK) {
        __m128i go_on = pix_go_on(&from, at);
        while (_mm_movemask_epi8(go_on) == 0xFFFF && from.width - at > 2 * PIX_BLOCK &&
               at + PIX_BLOCK - from.done < PIX_MAX_RUN) { // nothing ends here, nor is cut
            at += PIX_BLOCK;
            go_on = pix_go_on(&from, at);
        }
        const uint32_t ends = static_cast<uint32_t>(_mm_movemask_epi8(go_on)) ^ 0xFFFFU;
        if (ends == 0) {
            if (at + PIX_BLOCK - from.done >= PIX_MAX_RUN) {
                out = pix_put_run(&from, PIX_MAX_RUN, out);
            }
        } else if constexpr (Shuffle) {
            out = pix_put_block(&from, at, go_on, ends, out);
        } else {
            out = pix_put_ends(&from, at, ends, out);
        }
    }
    for (; from.width - at <= PIX_BLOCK && at < from.width && out <= full; ++at) {
        if (pix_ends_run(&from, at)) {
            out = pix_put_run(&from, at + 1 - from.done, out);
        }
    }
    row->done = from.done;
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
