// What an open makes of a set of files: of headers that fit or do not, and of every short file with
// every byte. Whatever opens must be what it says it is.
#include "tests/support.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace {

constexpr auto colour = [](int width, int height) { return colour_header(width, height); };
constexpr auto matte = [](int width, int height) { return colour_header(width, height, 8); };
constexpr auto ints = [](int width, int height) { return depth_header(width, height); };

// Images of 2 by 2 pixels.
const Bytes COLOUR = colour(2, 2) + hex("01010203 00FFFFFF 01040506  02070809");
const Bytes MATTE = matte(2, 2) + hex("02AA 01AB 01AC");
const Bytes DEPTH = ints(2, 2) + hex("00000001 00000002 05F5E100 FFFFFFFF");
const Bytes FLOATS = depth_header(2, 2, 55655) + hex("4CBEBC20 00000000 7FC00000 4CBEBC20");

// The files of an image "a", the main file first. What holds no byte is no file.
using Files = std::vector<std::pair<const char *, Bytes>>;

Files set(const Bytes &image, const Bytes &mask = {}, const Bytes &depth = {})
{
    return {{"r/a", image}, {"mask/a", mask}, {"depth/a", depth}};
}

Files fields(const Files &even, const Files &odd)
{
    return {{"r/a.e", even[0].second},     {"r/a.o", odd[0].second},
            {"mask/a.e", even[1].second},  {"mask/a.o", odd[1].second},
            {"depth/a.e", even[2].second}, {"depth/a.o", odd[2].second}};
}

const Files MATTED = set(COLOUR, MATTE), DEEP = set(COLOUR, {}, DEPTH);

// `name` lies in "r/". In `what`, low and high mean fewer and more rows, wide means more columns,
// and short means that the file ends within its header.
struct Case {
    const char *what;
    Files files = {};
    const char *name = "a";
    std::vector<int> told = {};
    int mattes = 0, depths = 0;
};

const Case CASES[] = {
    {.what = "largest", .files = set(colour(16383, 16383))},
    {.what = "no rows", .files = set(colour(1, 0))},
    {.what = "a depth file", .files = set(ints(24, 24) + DEPTH), .told = {60}},
    {.what = "9 bytes", .files = set(Bytes(9)), .told = {-EDOM, 52}},
    {.what = "SGI", .files = {{"r/a.rgb", colour(474, 1)}}, .name = "a.rgb", .told = {60}},

    {.what = "matte short", .files = set(COLOUR, {1}), .told = {25}},
    {.what = "matte of 24 bits", .files = set(COLOUR, COLOUR), .told = {25}},
    {.what = "matte wide", .files = set(COLOUR, matte(16384, 2)), .told = {25}},
    {.what = "matte low", .files = set(COLOUR, matte(2, 1), DEPTH), .told = {43}, .depths = 1},
    {.what = "depth short", .files = set(COLOUR, {}, {1}), .told = {25}},
    {.what = "depth wide", .files = set(COLOUR, MATTE, ints(3, 2)), .told = {257}, .mattes = 1},
    {.what = "both low", .files = set(COLOUR, matte(2, 1), ints(2, 1)), .told = {43, 257}},
    {.what = "other depth", .files = set(COLOUR, {}, depth_header(2, 2, 1)), .told = {257}},
    {.what = "matte alone", .files = set(MATTE, {}, DEPTH), .mattes = 1},

    {.what = "even higher", .files = fields(set(colour(2, 3)), set(COLOUR))},
    {.what = "odd higher", .files = fields(set(COLOUR), set(colour(2, 3))), .told = {259, 60}},
    {.what = "other bits", .files = fields(set(COLOUR), set(MATTE)), .told = {259, 60}},
    {.what = "odd missing", .files = fields(set(COLOUR), set({})), .told = {52}},
    {.what = "other mattes", .files = fields(MATTED, set(COLOUR, COLOUR)), .told = {259, 25}},
    {.what = "other depths", .files = fields(DEEP, set(COLOUR, {}, FLOATS)), .told = {259, 25}},
};

const Files IMAGES[] = {
    set(COLOUR, MATTE, DEPTH),
    set(COLOUR, {}, FLOATS),
    set(MATTE),
    fields(set(COLOUR, MATTE, DEPTH), set(COLOUR, MATTE, DEPTH)),
};

class ExhaustTest : public ModuleTest {
  protected:
    void make_files(const Files &files)
    {
        for (const auto &[name, bytes] : files) {
            bytes.empty() ? void() : make(name, bytes);
        }
    }

    // Checks that the probe and the open of image "a" agree with the first 12 bytes of its main
    // file `main`. Then reads the top six rows; when all are good, reads them again from the bottom
    // up, and they must be the same.
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
        errno = EDOM; // the reason where no call fails
        ImageHandle *handle = open_image(reader("a"));
        if (result == 1) {
            const ImageInfo &info = *handle->info;
            EXPECT_EQ(whole && info.width > 0 && info.height > 0, qualifies);
            EXPECT_EQ(info.width, word(0));
            EXPECT_EQ(info.channel_count, word(8) == 24 ? 3 : 0);
            std::map<int32_t, Samples> rows;
            bool good = true;
            for (int32_t y = info.height - 1; y >= std::max(0, info.height - 6); --y) {
                rows[y] = ask(handle, y);
                good = good && vyn__err == 0;
            }
            for (const auto &[y, row] : good ? rows : decltype(rows)()) {
                EXPECT_EQ(ask(handle, y), row);
            }
        }
        close_image(handle);
    }

    long tried = 0;
};

} // namespace

TEST_F(ExhaustTest, HeadersThatDisagreeGiveTheirMessages)
{
    for (const Case &c : CASES) {
        SCOPED_TRACE(c.what);
        clear();
        make_files(c.files);
        errno = EDOM; // the reason where no call fails
        ImageHandle *handle = open_image(reader(c.name));
        EXPECT_EQ(told, c.told);
        EXPECT_EQ(handle->priv->state->plane[PIX_MATTE].present, c.mattes);
        EXPECT_EQ(handle->priv->state->plane[PIX_DEPTH].present, c.depths);
        close_image(handle);
    }
}

TEST_F(ExhaustTest, EveryPrefixAndEveryByteGiveAnErrorOrAnImage)
{
    for (const Files &files : IMAGES) {
        make_files(files);
        for (const auto &[name, bytes] : files) {
            for (size_t length = 0; !bytes.empty() && length <= bytes.size(); ++length) {
                SCOPED_TRACE(name + (" cut to " + std::to_string(length)));
                make(name, Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length)));
                check(files[0].first);
            }
            // -1 for an entry without bytes; then the loop has no turn.
            const int file = open(path(name).c_str(), O_WRONLY);
            for (size_t i = 0; i < bytes.size() * 257; ++i) { // the last value is the file's own
                const size_t at = i / 257;
                const auto byte = i % 257 == 256 ? bytes[at] : static_cast<uint8_t>(i % 257);
                SCOPED_TRACE(name + (" byte " + std::to_string(at)) + ": " + std::to_string(byte));
                ASSERT_EQ(pwrite(file, &byte, 1, static_cast<off_t>(at)), 1);
                check(files[0].first);
            }
            close(file);
        }
        std::filesystem::remove_all(directory);
    }
    printf("%ld files tried\n", tried);
}
