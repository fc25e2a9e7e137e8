// The codec in memory, with rows that a generator makes.
#include "tests/packets.h"

#include <gtest/gtest.h>

#include <random>

// Most runs of a row have 1 to N pixels, where N is 4, 5, 17, 40 or 255; a few packets are empty,
// and a few have any count. The width of the row is near the number of pixels in its packets, and
// the packets are cut into two spans anywhere. Colours are few, so that many neighbours are equal
// or differ in one channel alone.
TEST(Packets, AnyRowIsCodedAsPlainLoopsCodeIt)
{
    std::mt19937 random;
    const auto below = [&](size_t end) { return static_cast<uint8_t>(random() % end); };
    for (size_t number = 0; number < 30000; ++number) {
        CodedRow row = {number % 4 ? PIX_COLOUR_CHANNELS : PIX_MATTE_CHANNELS, 16 - below(64)};
        const size_t most[] = {4, 4, 4, 5, 17, 40, 255};
        const size_t usual = most[number % std::size(most)];
        for (int packet = below(64); packet > 0; --packet) {
            const uint8_t kind = below(32);
            const uint8_t count = kind == 0 ? 0 : below(kind == 1 ? 256 : usual) + 1;
            row.width += count;
            row.packets.push_back(count);
            for (int channel = 0; channel < row.channels; ++channel) {
                row.packets.push_back(below(2));
            }
        }
        row.width = std::max(row.width, 0);
        row.room += below(8) + below(2) * PIX_ENCODE_ROOM;
        row.cut = random() % (row.packets.size() + 1);
        EXPECT_TRUE(codec_agrees(row)) << "row " << number << " of width " << row.width;
    }
}
