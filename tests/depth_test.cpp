// Depth samples, from a stream.
#include "host/messages.h"
#include "read/read.h"

#include <gtest/gtest.h>

#include <vector>

TEST(Depth, SamplesAreConvertedAsFarAsTheStreamGoes)
{
    struct Case {
        int32_t kind;
        std::vector<uint8_t> bytes;
        std::vector<int32_t> depths; // those that are there
    };
    const Case cases[] = {
        {PIX_DEPTH_INT, {0x05, 0xF5, 0xE1, 0, 0, 0, 0, 1}, {100000000, 1}},
        {PIX_DEPTH_INT, {0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0, 0, 0}, {-1, INT32_MIN}},
        {PIX_DEPTH_FLOAT, {0x4C, 0xBE, 0xBC, 0x20, 0x7F, 0xC0, 0, 0}, {0, 100000000}}, // 1e8, NaN
        {PIX_DEPTH_FLOAT, {0x4C, 0xBE, 0xBC, 0x1F, 0x4C, 0xBE, 0xBC, 0x21}, {100000000, 100000000}},
        {PIX_DEPTH_FLOAT, {0x4C, 0xBE, 0xBC, 0x20, 0x4C}, {0}},
    };
    for (Case c : cases) {
        FILE *file = fmemopen(c.bytes.data(), c.bytes.size(), "r");
        std::vector<int32_t> row(2, 77);
        const int32_t result = c.depths.size() == 2 ? PIX_OK : PIX_READ_FAILED;
        EXPECT_EQ(pix_read_depth_row(file, 2, c.kind, row.data()), result);
        EXPECT_EQ(vyn__err, result);
        c.depths.resize(2, 77);
        EXPECT_EQ(row, c.depths);
        fclose(file);
    }
    EXPECT_DEATH((void)pix_read_depth_row(nullptr, 0, 3, nullptr), "");
}
