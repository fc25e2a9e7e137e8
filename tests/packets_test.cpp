// The codec in memory, both its ways. A row is given as its runs, from which docs/format.md tells
// both its packets and its pixels. Blocks of bytes end with their heap block, so AddressSanitizer
// sees what is read behind them. What is written behind shows in every build: guard bytes stand
// there.
#include "format/packets.h"

#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Runs = std::vector<size_t>;
using testing::PrintToString;
using testing::Test;

constexpr int GUARD = 32; // bytes
constexpr uint8_t UNTOUCHED = 0xEE;

bool is_intact(const Bytes &block)
{
    return std::count(block.end() - GUARD, block.end(), UNTOUCHED) == GUARD;
}

struct Row {
    Runs runs;
    std::vector<Bytes> pixels; // of each channel
    Bytes packets = {};
};

// Runs side by side differ in one channel, each time in another.
Row make_row(size_t channels, const Runs &runs)
{
    Row row = {runs, std::vector<Bytes>(channels)};
    for (size_t run = 0; run < runs.size(); ++run) {
        size_t left = runs[run];
        do {
            const size_t count = std::min<size_t>(left, 255);
            row.packets.push_back(static_cast<uint8_t>(count));
            for (size_t channel = channels; channel-- > 0;) {
                const auto value = static_cast<uint8_t>((run + channel) / channels);
                row.packets.push_back(value);
                row.pixels[channel].insert(row.pixels[channel].end(), count, value);
            }
            left -= count;
        } while (left > 0);
    }
    return row;
}

// Why decoding stops, behind how many bytes and pixels.
using Decoded = std::tuple<PixStop, size_t, int32_t>;

Decoded expect_decoded(const Row &row, size_t size, int32_t width, bool stored)
{
    const size_t packet = 1 + row.pixels.size();
    size_t at = 0;
    int32_t done = 0;
    while (done < width) {
        if (size - at < packet) {
            return {PIX_STOP_SPAN, at, done};
        }
        const int32_t count = row.packets[at];
        at += packet;
        if (stored && done + count > width) {
            return {PIX_STOP_WIDTH, at, done};
        }
        done += count;
    }
    return {PIX_STOP_ROW, at, done};
}

// Decodes, or passes over, the first `cut` bytes and goes on with all others.
void check_decoding(const Row &row, int32_t width, bool stored, size_t cut)
{
    for (const bool shuffle : {false, pix_can_shuffle}) {
        std::vector<Bytes> planes(3, Bytes(static_cast<size_t>(width + GUARD), UNTOUCHED));
        void *const buffers[] = {planes[0].data(), planes[1].data(), planes[2].data()};
        PixRow to = {stored ? buffers : nullptr, static_cast<int32_t>(row.pixels.size()), width, 0};
        PixStop stop = PIX_STOP_SPAN;
        size_t taken = 0;
        for (const size_t end : {cut, row.packets.size()}) {
            if (stop != PIX_STOP_SPAN || Test::HasFailure()) {
                break;
            }
            const Bytes block(row.packets.data() + taken, row.packets.data() + end);
            PixSpan span = {block.data(), block.data() + block.size()};
            stop = pix_decode(&span, &to, shuffle);
            taken = end - static_cast<size_t>(span.end - span.at);
            EXPECT_EQ(Decoded(stop, taken, to.done), expect_decoded(row, end, width, stored))
                << "shuffle " << shuffle << ", width " << width << ", " << end << " bytes of runs "
                << PrintToString(row.runs);
            for (size_t channel = 0; stored && channel < row.pixels.size(); ++channel) {
                EXPECT_EQ(memcmp(planes[channel].data(), row.pixels[channel].data(),
                                 static_cast<size_t>(to.done)),
                          0)
                    << "pixels of channel " << channel;
                EXPECT_TRUE(is_intact(planes[channel])) << "stored behind";
            }
        }
    }
}

// Encodes in calls with `room` bytes each, as many as that takes.
void check_encoding(Row row, size_t room)
{
    const auto channels = static_cast<int32_t>(row.pixels.size());
    const auto width = static_cast<int32_t>(row.pixels[0].size());
    row.pixels.resize(3);
    void *const buffers[] = {row.pixels[0].data(), row.pixels[1].data(), row.pixels[2].data()};
    for (const bool shuffle : {false, pix_can_shuffle}) {
        PixRow from = {buffers, channels, width, 0};
        Bytes packets;
        size_t size = room;
        while (!Test::HasFailure() && from.done < width && room - size < PIX_ENCODE_ROOM) {
            Bytes block(room + GUARD, UNTOUCHED);
            size = pix_encode(&from, block.data(), room, shuffle);
            packets.insert(packets.end(), block.data(), block.data() + size);
            EXPECT_TRUE(is_intact(block)) << "written behind the room";
        }
        EXPECT_EQ(std::make_pair(packets, from.done), std::make_pair(row.packets, width))
            << "shuffle " << shuffle << ", room " << room << ", runs " << PrintToString(row.runs);
    }
}

} // namespace

// Groups of four packets with every count that is special, at each of their places, and others
// behind them; at every distance from the end of the row, which up to 20 of their pixels may pass,
// and from the end of the span.
TEST(Packets, AreDecodedAtEveryDistanceFromTheEnd)
{
    for (const size_t count : {0U, 1U, 2U, 3U, 4U, 5U, 15U, 16U, 17U, 32U, 255U}) {
        for (size_t others = 0; others < 64; others += count <= 4 ? 3 : 21) {
            for (size_t number = 0; number < 16 && !HasFailure(); ++number) {
                const size_t channels = number & 4 ? 1 : 3;
                const bool stored = (number & 8) != 0;
                Runs runs = {1 + others % 4, 1 + others / 4 % 4, 1 + others / 16};
                runs.insert(runs.begin() + number % 4, count);
                const auto pixels = static_cast<int32_t>(runs[0] + runs[1] + runs[2] + runs[3]);
                for (size_t packet = 0; packet < 40; ++packet) { // a row passed over may end at 0
                    runs.push_back(stored || packet % 2 == 0);
                }
                const Row row = make_row(channels, runs);
                for (int32_t width = std::max(0, pixels - 20); width <= pixels + 17; ++width) {
                    check_decoding(row, width, stored, row.packets.size());
                }
                for (size_t cut = 0; cut <= (stored ? 40 : row.packets.size()); ++cut) {
                    check_decoding(row, pixels + 17, stored, cut);
                }
            }
        }
    }
}

// A run of `open` pixels before the edge of a block of 16, which goes on behind the edge, and ends
// of runs in the next two blocks, sparse ones and dense ones.
TEST(Packets, OfRunsAcrossTheEdgeOfABlockAreCodedBothWays)
{
    constexpr size_t MUCH_ROOM = PIX_ENCODE_ROOM + 50 * PIX_MAX_PACKET; // for one call
    for (const size_t open :
         Runs{0,   1,   2,   5,   8,   15,  16,  17,  31,  32,  33,  200, 224,
              237, 238, 239, 240, 241, 253, 254, 255, 256, 257, 495, 510, 600}) {
        for (uint32_t number = 0; number < 2000 && !HasFailure(); ++number) {
            const uint32_t dense = number * 0x9E3779B1;
            const uint32_t ends = number % 2 ? dense : dense & dense >> 7 & dense << 5;
            Runs runs((open + 15) / 16 * 16 - open, 1);
            size_t run = open;
            for (uint32_t pixel = 0; pixel < 32; ++pixel) {
                ++run;
                if ((ends >> pixel & 1) != 0) {
                    runs.push_back(run);
                    run = 0;
                }
            }
            runs.push_back(run + 1 + number % 17);
            for (const size_t channels : Runs{1, 3}) {
                const Row row = make_row(channels, runs);
                for (const size_t room : {PIX_ENCODE_ROOM, PIX_ENCODE_ROOM + 5, MUCH_ROOM}) {
                    check_encoding(row, room);
                }
                check_decoding(row, static_cast<int32_t>(row.pixels[0].size()), true,
                               number % row.packets.size());
            }
        }
    }
}
