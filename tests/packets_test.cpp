// The codec in memory, both its ways, against loops that are written as docs/format.md says. A
// vector of n bytes is a heap block of n bytes, so AddressSanitizer sees what is read behind it.
// What is written behind a row or behind the room shows in every build: guard bytes stand there.
#include "format/packets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Planes = std::vector<Bytes>; // of a row: red, green and blue, or the matte
using testing::PrintToString;

constexpr int GUARD = 32; // bytes
constexpr uint8_t UNTOUCHED = 0xEE;

struct Packets : testing::Test {
    static void TearDownTestSuite()
    {
        printf("%zu rows coded both ways\n", coded);
    }
    static inline size_t coded = 0;
};

bool is_intact(const Bytes &block)
{
    return std::count(block.end() - GUARD, block.end(), UNTOUCHED) == GUARD;
}

struct Shape {
    size_t channels = 1;
    int32_t width = 4;
    bool stored = true; // or passed over
};

// Why decoding stopped, after how many bytes and pixels, and the pixels that are stored.
using Decoded = std::tuple<PixStop, size_t, int32_t, Planes>;

Decoded decode_one_by_one(const Bytes &bytes, size_t size, const Shape &row)
{
    Planes planes(row.channels);
    int32_t done = 0;
    size_t at = 0;
    while (done < row.width) {
        if (size - at < 1 + row.channels) {
            return {PIX_STOP_SPAN, at, done, planes};
        }
        const uint8_t count = bytes[at];
        at += 1 + row.channels;
        if (row.stored && done + count > row.width) {
            return {PIX_STOP_WIDTH, at, done, planes};
        }
        for (size_t channel = 0; row.stored && channel < row.channels; ++channel) {
            planes[channel].insert(planes[channel].end(), count, bytes[at - 1 - channel]);
        }
        done += count;
    }
    return {PIX_STOP_ROW, at, done, planes};
}

// Decodes the first `cut` bytes, and goes on with all others.
void check_decoding(const Bytes &bytes, const Shape &shape, size_t cut)
{
    if (testing::Test::HasFailure()) {
        return;
    }
    ++Packets::coded;
    for (const bool shuffle : {false, pix_can_shuffle}) {
        Planes planes(3, Bytes(static_cast<size_t>(shape.width + GUARD), UNTOUCHED));
        void *const buffers[] = {planes[0].data(), planes[1].data(), planes[2].data()};
        PixRow row = {shape.stored ? buffers : nullptr, static_cast<int32_t>(shape.channels),
                      shape.width, 0};
        PixStop stop = PIX_STOP_SPAN;
        size_t taken = 0;
        for (const size_t end : {cut, bytes.size()}) {
            if (stop != PIX_STOP_SPAN) {
                break;
            }
            const Bytes block(bytes.data() + taken, bytes.data() + end);
            PixSpan span = {block.data(), block.data() + block.size()};
            stop = pix_decode(&span, &row, shuffle);
            taken = end - static_cast<size_t>(span.end - span.at);
            Planes stored;
            for (size_t i = 0; i < shape.channels; ++i) {
                const uint8_t *plane = planes[i].data();
                stored.emplace_back(plane, plane + (shape.stored ? row.done : 0));
            }
            EXPECT_EQ(Decoded(stop, taken, row.done, stored), decode_one_by_one(bytes, end, shape))
                << "shuffle " << shuffle << ", width " << shape.width << ", cut at " << cut << ": "
                << PrintToString(bytes);
            EXPECT_TRUE(std::all_of(planes.begin(), planes.end(), is_intact)) << "stored behind";
        }
    }
}

// Decodes packets with these counts, and others behind them, at every distance from the end of the
// row, which up to 20 of their pixels may pass, and from the end of the span.
void check_group(const Bytes &group, size_t channels, bool stored)
{
    const int32_t pixels = std::accumulate(group.begin(), group.end(), 0);
    Bytes bytes;
    for (size_t packet = 0; packet < group.size() + 40; ++packet) {
        const bool is_empty = !stored && packet % 2 != 0; // where a row that is passed over may end
        bytes.push_back(packet < group.size() ? group[packet] : !is_empty);
        for (size_t channel = 0; channel < channels; ++channel) {
            bytes.push_back(static_cast<uint8_t>(bytes.size()));
        }
    }
    for (int32_t width = std::max(0, pixels - 20); width <= pixels + 40; ++width) {
        check_decoding(bytes, {channels, width, stored}, bytes.size());
    }
    for (size_t cut = 0; cut <= (stored ? 16 + 40 : bytes.size()); ++cut) {
        check_decoding(bytes, {channels, pixels + 40, stored}, cut);
    }
}

Bytes encode_one_by_one(const Planes &row)
{
    const size_t width = row[0].size();
    Bytes packets;
    uint8_t count = 0;
    for (size_t at = 0; at < width; ++at) {
        bool ends_run = ++count == 255 || at + 1 == width;
        for (const Bytes &plane : row) {
            ends_run = ends_run || plane[at] != plane[at + 1];
        }
        if (ends_run) {
            packets.push_back(count);
            for (size_t channel = row.size(); channel-- > 0;) {
                packets.push_back(row[channel][at]);
            }
            count = 0;
        }
    }
    return packets;
}

// Encodes a row in calls with `room` bytes each, as many as it needs.
void check_encoding(Planes planes, size_t room)
{
    if (testing::Test::HasFailure()) {
        return;
    }
    ++Packets::coded;
    const Bytes expected = encode_one_by_one(planes);
    const auto channels = static_cast<int32_t>(planes.size());
    const auto width = static_cast<int32_t>(planes[0].size());
    planes.resize(3);
    void *const buffers[] = {planes[0].data(), planes[1].data(), planes[2].data()};
    for (const bool shuffle : {false, pix_can_shuffle}) {
        PixRow row = {buffers, channels, width, 0};
        Bytes packets;
        size_t size = 0;
        do {
            Bytes block(room + GUARD, UNTOUCHED);
            size = pix_encode(&row, block.data(), room, shuffle);
            packets.insert(packets.end(), block.data(), block.data() + size);
            EXPECT_TRUE(is_intact(block)) << "written behind the room";
        } while (room - size < PIX_ENCODE_ROOM && packets.size() < expected.size());
        EXPECT_EQ(std::make_pair(packets, row.done), std::make_pair(expected, width))
            << "shuffle " << shuffle << ", room " << room << ": " << PrintToString(planes);
    }
}

// A row in which runs end at the pixels for which `ends_run` says so. The pixels on both sides
// differ in one channel, each time in another.
template <typename EndsRun>
Planes make_row(size_t channels, size_t width, EndsRun ends_run)
{
    Planes row(channels, Bytes(width));
    for (size_t at = 0, ends = 0; at + 1 < width; ++at) {
        if (ends_run(at)) {
            Bytes &plane = row[++ends % channels];
            std::fill(plane.begin() + static_cast<ptrdiff_t>(at) + 1, plane.end(), ends);
        }
    }
    return row;
}

} // namespace

TEST_F(Packets, RowsAreDecoded)
{
    struct Case {
        Shape row = {};
        Bytes bytes = {};
        Decoded gives = {};
    };
    const Case cases[] = {
        {.bytes = {4, 9}, .gives = {PIX_STOP_ROW, 2, 4, {{9, 9, 9, 9}}}},
        {.bytes = {0, 1, 1, 7, 0, 1, 3, 8, 0, 9}, .gives = {PIX_STOP_ROW, 8, 4, {{7, 8, 8, 8}}}},
        {.bytes = {3, 5, 2, 6, 1, 7}, .gives = {PIX_STOP_WIDTH, 4, 3, {{5, 5, 5}}}},
        {.bytes = {255, 5}, .gives = {PIX_STOP_WIDTH, 2, 0, {{}}}},
        {.bytes = {3, 5, 1}, .gives = {PIX_STOP_SPAN, 2, 3, {{5, 5, 5}}}},
        {.row = {.width = 0}, .bytes = {0, 1}, .gives = {PIX_STOP_ROW, 0, 0, {{}}}},
        {.row = {.channels = 3},
         .bytes = {1, 1, 2, 3, 0, 7, 8, 9, 3, 4, 5, 6},
         .gives = {PIX_STOP_ROW, 12, 4, {{3, 6, 6, 6}, {2, 5, 5, 5}, {1, 4, 4, 4}}}},
        {.row = {.stored = false}, .bytes = {9, 5, 1, 7}, .gives = {PIX_STOP_ROW, 2, 9, {{}}}},
        {.row = {.stored = false}, .bytes = {4, 6, 0, 7}, .gives = {PIX_STOP_ROW, 2, 4, {{}}}},
        {.row = {.stored = false}, .bytes = {3, 5, 9}, .gives = {PIX_STOP_SPAN, 2, 3, {{}}}},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(decode_one_by_one(c.bytes, c.bytes.size(), c.row), c.gives);
        for (size_t cut = 0; cut <= c.bytes.size(); ++cut) {
            check_decoding(c.bytes, c.row, cut);
        }
    }
}

TEST_F(Packets, BothWaysDecodeEveryCountAtEveryPlaceOfAGroup)
{
    for (size_t number = 0; number < 1280; ++number) { // places of colour, and the first of a matte
        const size_t place = number / 256 % 4;
        const size_t count = number % 256;
        const size_t step = number <= 5 ? 1 : 63; // all groups of short runs, once
        for (size_t others = 0; others < 64; others += step) {
            Bytes group(4, static_cast<uint8_t>(count));
            for (size_t i = 0; i < 3; ++i) {
                group[(place + 1 + i) % 4] = static_cast<uint8_t>(1 + (others >> 2 * i) % 4);
            }
            check_group(group, number < 1024 ? 3 : 1, true);
            if (place == 0) {
                check_group(group, number < 1024 ? 3 : 1, false);
            }
        }
    }
}

TEST_F(Packets, BothWaysCodeEveryShortRow)
{
    size_t rows = 1;
    for (size_t width = 0; width <= 9; ++width, rows *= 3) {
        for (size_t number = 0; number < 2 * rows; ++number) {
            Planes row(number < rows ? 1 : 3, Bytes(width));
            for (size_t at = 0, rest = number % rows; at < width; ++at, rest /= 3) {
                row[rest % row.size()][at] = static_cast<uint8_t>(1 + rest % 3);
            }
            check_encoding(row, PIX_ENCODE_ROOM);
            const Bytes packets = encode_one_by_one(row);
            check_decoding(packets, {row.size(), static_cast<int32_t>(width)},
                           number % (packets.size() + 1));
        }
    }
}

TEST_F(Packets, RowsAreEncoded)
{
    EXPECT_EQ(encode_one_by_one({{3, 3, 6}, {2, 2, 5}, {1, 1, 1}}),
              (Bytes{2, 1, 2, 3, 1, 1, 5, 6}));
    EXPECT_EQ(encode_one_by_one({Bytes(600, 9)}), (Bytes{255, 9, 255, 9, 90, 9}));
}

TEST_F(Packets, BothWaysEncodeEveryPatternOfRunEnds)
{
    constexpr size_t MUCH_ROOM = PIX_ENCODE_ROOM + 50 * PIX_MAX_PACKET; // for one call
    for (const size_t room : {PIX_ENCODE_ROOM, PIX_ENCODE_ROOM + 5, MUCH_ROOM}) {
        for (const size_t channels : {1UL, 3UL}) {
            const size_t step = channels == 3 && room == MUCH_ROOM ? 1 : 61;
            for (const size_t open :
                 {0UL, 1UL, 200UL, 238UL, 239UL, 240UL, 241UL, 254UL, 255UL, 256UL, 510UL, 600UL}) {
                const size_t block = (open + 15) / 16 * 16;
                for (size_t ends = 0; ends < 65536; ends += step) {
                    const size_t bits = ends * 0x9E3B0001; // another pattern in the next block
                    const auto ends_run = [&](size_t at) {
                        return at < block ? at < block - open : (bits >> (at - block) & 1) != 0;
                    };
                    check_encoding(make_row(channels, block + 33, ends_run), room);
                }
            }
        }
    }
}
