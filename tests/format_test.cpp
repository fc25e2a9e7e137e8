// Rows and depth samples, to and from a stream.
#include "format/depth.h"
#include "format/rows.h"
#include "host/messages.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using Bytes = std::vector<uint8_t>;

using File = std::unique_ptr<FILE, int (*)(FILE *)>;

static File memory_file(Bytes &bytes, const char *mode)
{
    return {fmemopen(bytes.data(), bytes.size(), mode), fclose};
}

// --- Rows -----------------------------------------------------------------------------------

static int read_matte(Bytes bytes, int32_t width, Bytes *row, long *position)
{
    const File file = memory_file(bytes, "r");
    row->assign(static_cast<size_t>(width) + 16, 0xEE);
    long size = 0;
    const int result = pix_read_matte_row(file.get(), width, row->data(), &size);
    *position = ftell(file.get());
    EXPECT_EQ(size, *position - *position % 2); // whole packets
    return result;
}

TEST(Rows, Decoding)
{
    // clang-format off
    // The pixels are those of a row of 4.
    struct Case { Bytes packets; int result; long position; Bytes pixels; };
    const Case cases[] = {
        {{4, 9}, PIX_OK, 2, {9, 9, 9, 9}},
        {{1, 7, 3, 8, 4, 0}, PIX_OK, 4, {7, 8, 8, 8}},
        {{0, 1, 2, 5, 0, 2, 2, 6, 0, 9}, PIX_OK, 8, {5, 5, 6, 6}},
        {{3, 5, 2, 6}, PIX_UNDECODABLE, 4, {5, 5, 5}},
        {{255, 5}, PIX_UNDECODABLE, 2, {}},
        {{3, 5, 1}, PIX_READ_FAILED, 3, {5, 5, 5}},
        {{3, 5}, PIX_READ_FAILED, 2, {5, 5, 5}},
    };
    // clang-format on
    for (const Case &c : cases) {
        Bytes row;
        long position = 0;
        EXPECT_EQ(read_matte(c.packets, 4, &row, &position), c.result);
        EXPECT_EQ(position, c.position);
        EXPECT_EQ(Bytes(row.begin(), row.begin() + static_cast<long>(c.pixels.size())), c.pixels);
        EXPECT_EQ(Bytes(row.begin() + 4, row.end()), Bytes(16, 0xEE)) << "written past the row";
    }
}

// Every row of up to 8 pixels over 3 colours, written and read back.
TEST(Rows, EverySmallRowComesBack)
{
    for (int32_t width = 0; width <= 8; ++width) {
        size_t rows = 1;
        for (int32_t i = 0; i < width; ++i) {
            rows *= 3;
        }
        for (size_t number = 0; number < rows; ++number) {
            uint8_t pixels[3][8] = {};
            size_t rest = number;
            for (int32_t i = 0; i < width; ++i, rest /= 3) {
                pixels[rest % 3][i] = 200; // red, green or blue
            }
            void *const buffers[] = {pixels[0], pixels[1], pixels[2]};
            Bytes packets(40);
            const File file = memory_file(packets, "w+");
            ASSERT_EQ(pix_write_colour_row(file.get(), width, buffers), PIX_OK);
            const long size = ftell(file.get());
            rewind(file.get());
            uint8_t again[3][8] = {};
            void *const targets[] = {again[0], again[1], again[2]};
            long again_size = 0;
            ASSERT_EQ(pix_read_colour_row(file.get(), width, targets, &again_size), PIX_OK);
            ASSERT_EQ(again_size, size);
            ASSERT_EQ(memcmp(again, pixels, sizeof pixels), 0) << width << " " << number;
        }
    }
}

TEST(Rows, RunsEndAt255PixelsAndAtAnyChannel)
{
    // clang-format off
    // Equal pixels stand before differing ones, which alternate in blue.
    struct Case { size_t equal, differing; std::vector<int> counts; };
    const Case cases[] = {
        {600, 0, {255, 255, 90}},   {255, 0, {255}},        {256, 0, {255, 1}},
        {254, 1, {254, 1}},         {255, 1, {255, 1}},     {0, 4, {1, 1, 1, 1}},
        {510, 2, {255, 255, 1, 1}}, {16, 3, {16, 1, 1, 1}}, {1, 0, {1}},
    };
    // clang-format on
    for (const Case &c : cases) {
        const size_t width = c.equal + c.differing;
        Bytes red(width, 1);
        Bytes green(width, 2);
        Bytes blue(width, 3);
        for (size_t i = c.equal; i < width; ++i) {
            blue[i] = static_cast<uint8_t>(100 + i % 2);
        }
        void *const buffers[] = {red.data(), green.data(), blue.data()};
        Bytes packets(4 * width + 1); // the stream ends them with a 0
        const File file = memory_file(packets, "w");
        ASSERT_EQ(pix_write_colour_row(file.get(), static_cast<int32_t>(width), buffers), PIX_OK);
        ASSERT_EQ(ftell(file.get()), 4 * static_cast<long>(c.counts.size()));
        fflush(file.get());
        for (size_t i = 0; i < c.counts.size(); ++i) {
            EXPECT_EQ(packets[4 * i], c.counts[i]);
            EXPECT_EQ(packets[4 * i + 2], 2);
            EXPECT_EQ(packets[4 * i + 3], 1);
        }
    }
}

// --- Depth ----------------------------------------------------------------------------------

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
