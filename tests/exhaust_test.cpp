// Every short file and every byte: images of all kinds, cut after each of their bytes, and with
// each byte set to each value. Whatever opens must be what it says it is.
#include "tests/support.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace {

const Bytes COLOUR = hex("0002 0002 0000 0001 0018  01010203 00FFFFFF 01040506  02070809");
const Bytes MATTE = hex("0002 0002 0000 0001 0008  02AA 01AB 01AC");
const Bytes DEPTH = hex("0000DD4F 0002 0002  00000001 00000002 05F5E100 FFFFFFFF");
const Bytes FLOATS = hex("0000D967 0002 0002  4CBEBC20 00000000 7FC00000 4CBEBC20");

using Files = std::vector<std::pair<const char *, Bytes>>; // the first is the main file

const Files IMAGES[] = {
    {{"r/a", COLOUR}, {"mask/a", MATTE}, {"depth/a", DEPTH}},
    {{"r/a", COLOUR}, {"depth/a", FLOATS}},
    {{"r/a", MATTE}},
    // clang-format off
    {{"r/a.e", COLOUR}, {"r/a.o", COLOUR}, {"mask/a.e", MATTE}, {"mask/a.o", MATTE},
     {"depth/a.e", DEPTH}, {"depth/a.o", DEPTH}},
    // clang-format on
    {{"r/a.e", COLOUR}, {"r/a.o", COLOUR}, {"depth/a.e", FLOATS}, {"depth/a.o", FLOATS}},
};

class ExhaustTest : public ModuleTest {
  protected:
    std::vector<int32_t> ask(ImageHandle *handle, int32_t y)
    {
        void **rows = nullptr;
        const int32_t code = handle->scanline_proc(handle->priv->state, y, &rows);
        EXPECT_EQ(code, vyn__err);
        const std::vector<int> seen = messages();
        if (code == 0) {
            EXPECT_TRUE(rows && seen.empty());
            return samples(*handle->priv->state, rows);
        }
        EXPECT_TRUE(code == -18 && !rows);
        EXPECT_TRUE(seen == std::vector<int>{55} || seen == (std::vector<int>{59, 55}));
        return {};
    }

    // The first rows from the top; and back again if all are good.
    void check_rows(ImageHandle *handle)
    {
        const int32_t height = handle->info->height;
        std::vector<std::vector<int32_t>> rows;
        for (int32_t y = height - 1; y >= 0 && y >= height - 6; --y) {
            rows.push_back(ask(handle, y));
        }
        const bool good =
            std::none_of(rows.begin(), rows.end(), [](auto &row) { return row.empty(); });
        for (size_t i = good ? rows.size() : 0; i-- > 0;) {
            EXPECT_EQ(ask(handle, height - 1 - static_cast<int32_t>(i)), rows[i]);
        }
    }

    void check(const char *main)
    {
        ++tried;
        Bytes start = contents(main);
        const bool whole = start.size() >= 12;
        start.resize(12);
        const auto word = [&](size_t at) { return start[at] << 8 | start[at + 1]; };
        const bool sizes = word(0) > 0 && word(0) < 32768 && word(2) > 0 && word(2) < 32768;
        const bool qualifies = whole && sizes && (word(8) == 8 || word(8) == 24);
        EXPECT_EQ(module.is_file(path(main).c_str(), nullptr), qualifies);

        ImageHandle *handle = standin_new_reader(path("r/a").c_str());
        vyn__err = 0;
        const int32_t result = module.read_open(handle);
        const std::vector<int> seen = messages();
        const int last = seen.empty() ? 0 : seen.back();
        if (result == 1) {
            const ImageInfo &info = *handle->info;
            EXPECT_TRUE(vyn__err == 0 ? seen.empty()
                                      : vyn__err == -5 && (last == 43 || last == 257));
            EXPECT_TRUE(qualifies || !whole || info.width == 0 || info.height == 0);
            EXPECT_EQ(info.width, word(0));
            EXPECT_EQ(info.channel_count, word(8) == 24 ? 3 : 0);
            EXPECT_EQ(image_disagrees(handle), "");
            check_rows(handle);
        } else {
            EXPECT_EQ(result, 0);
            EXPECT_TRUE(vyn__err == -8 ? last == 60 : vyn__err == -5 && (last == 52 || last == 25));
            EXPECT_EQ(failed_open_holds(handle), "");
            messages();
        }
        EXPECT_EQ(handle->close_proc(handle), 0);
    }

    long tried = 0;
};

} // namespace

TEST_F(ExhaustTest, PrefixesAndBytes)
{
    for (const Files &files : IMAGES) {
        for (const auto &[name, bytes] : files) {
            make(name, bytes);
        }
        for (const auto &[name, bytes] : files) {
            SCOPED_TRACE(name);
            for (size_t length = 0; length <= bytes.size(); ++length) {
                SCOPED_TRACE("cut to " + std::to_string(length));
                make(name, Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length)));
                check(files[0].first);
            }
            const int file = open(path(name).c_str(), O_WRONLY);
            for (size_t at = 0; at < bytes.size(); ++at) {
                for (int value = 0; value < 256; ++value) {
                    SCOPED_TRACE("byte " + std::to_string(at) + ": " + std::to_string(value));
                    const auto byte = static_cast<uint8_t>(value);
                    ASSERT_EQ(pwrite(file, &byte, 1, static_cast<off_t>(at)), 1);
                    check(files[0].first);
                }
                ASSERT_EQ(pwrite(file, &bytes[at], 1, static_cast<off_t>(at)), 1);
            }
            close(file);
        }
        std::filesystem::remove_all(directory);
    }
    printf("%ld files tried\n", tried);
}
