// Depth samples, from a stream.
#include "host/messages.h"
#include "read/read.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using Bytes = std::vector<uint8_t>;

using File = std::unique_ptr<FILE, int (*)(FILE *)>;

static File memory_file(Bytes &bytes, const char *mode)
{
    return {fmemopen(bytes.data(), bytes.size(), mode), fclose};
}

TEST(Depth, Samples)
{
    // clang-format off
    struct Case { int32_t kind; Bytes bytes; int32_t result; std::vector<int32_t> depths; };
    const Case cases[] = {
        {PIX_DEPTH_INT, {0x05, 0xF5, 0xE1, 0, 0, 0, 0, 1}, PIX_OK, {100000000, 1}},
        {PIX_DEPTH_INT, {0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0, 0, 0}, PIX_OK, {-1, INT32_MIN}},
        {PIX_DEPTH_INT, {0, 0, 0, 1, 0, 0, 0}, PIX_READ_FAILED, {0x01000000}},
        {PIX_DEPTH_FLOAT, {0x4C, 0xBE, 0xBC, 0x20, 0, 0, 0, 0}, PIX_OK, {0, 100000000}},
        // the neighbours of 1e8; infinity and not a number
        {PIX_DEPTH_FLOAT, {0x4C, 0xBE, 0xBC, 0x1F, 0x4C, 0xBE, 0xBC, 0x21}, PIX_OK, {100000000, 100000000}},
        {PIX_DEPTH_FLOAT, {0x7F, 0x80, 0, 0, 0x7F, 0xC0, 0, 0}, PIX_OK, {100000000, 100000000}},
        {PIX_DEPTH_FLOAT, {0x4C, 0xBE, 0xBC, 0x20, 0x4C}, PIX_READ_FAILED, {0, 77}},
    };
    // clang-format on
    for (Case c : cases) {
        const File file = memory_file(c.bytes, "r");
        std::vector<int32_t> row(2, 77);
        EXPECT_EQ(pix_read_depth_row(file.get(), 2, c.kind, row.data()), c.result);
        EXPECT_EQ(vyn__err, c.result);
        row.resize(c.depths.size());
        EXPECT_EQ(row, c.depths);
    }
    EXPECT_EQ(pix_read_depth_row(nullptr, 0, PIX_DEPTH_FLOAT, nullptr), 0);
    EXPECT_DEATH((void)pix_read_depth_row(nullptr, 0, 3, nullptr), "");
}
