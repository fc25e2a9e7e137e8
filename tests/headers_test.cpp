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

// Images of 2 by 2 pixels.
const Bytes COLOUR = colour(2, 2) + hex("01010203 00FFFFFF 01040506  02070809");
const Bytes MATTE = matte(2, 2) + hex("02AA 01AB 01AC");
const Bytes DEPTH = depth_header(2, 2) + hex("00000001 00000002 05F5E100 FFFFFFFF");
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

// How an open ends, by its last message.
struct Ending {
    int message;
    int32_t result;
    int code;
};

const Ending ENDINGS[] = {{0, 1, 0},   {25, 0, -5}, {43, 1, -5},
                          {52, 0, -5}, {60, 0, -8}, {257, 1, -5}};

// `name` lies in "r/".
struct Case {
    const char *what;
    Files files = {};
    const char *name = "a";
    std::vector<int> told = {};
    int mattes = 0, depths = 0;
};

const Case CASES[] = {
    {.what = "nothing", .told = {52}},
    {.what = "largest", .files = set(colour(16383, 16383))},
    {.what = "too wide", .files = set(colour(16384, 1)), .told = {60}},
    {.what = "too high", .files = set(colour(1, 16384)), .told = {60}},
    {.what = "no rows", .files = set(colour(1, 0))},
    {.what = "16 bits", .files = set(colour_header(1, 1, 16)), .told = {60}},
    {.what = "a depth file", .files = set(depth_header(24, 24) + DEPTH), .told = {60}},
    {.what = "9 bytes", .files = set(Bytes(9)), .told = {-EDOM, 52}},
    {.what = "474 wide", .files = {{"r/a.pix", colour(474, 1)}}, .name = "a.pix"},
    {.what = "SGI", .files = {{"r/a.rgb", colour(474, 1)}}, .name = "a.rgb", .told = {60}},
    {.what = "other SGI", .files = {{"r/a.bw", colour(474, 1)}}, .name = "a.bw"},

    {.what = "matte short", .files = set(COLOUR, {1}), .told = {25}},
    {.what = "matte of 24 bits", .files = set(COLOUR, COLOUR), .told = {25}},
    {.what = "matte wide", .files = set(COLOUR, matte(16384, 2)), .told = {25}},
    {.what = "matte low", .files = set(COLOUR, matte(2, 1), DEPTH), .told = {43}, .depths = 1},
    {.what = "matte narrow", .files = set(COLOUR, matte(1, 2)), .told = {43}},
    {.what = "depth short", .files = set(COLOUR, {}, {1}), .told = {25}},
    {.what = "depth high", .files = set(COLOUR, {}, depth_header(2, 16384)), .told = {25}},
    {.what = "depth wide",
     .files = set(COLOUR, MATTE, depth_header(3, 2)),
     .told = {257},
     .mattes = 1},
    {.what = "both low", .files = set(COLOUR, matte(2, 1), depth_header(2, 1)), .told = {43, 257}},
    {.what = "other depth", .files = set(COLOUR, {}, depth_header(2, 2, 1)), .told = {257}},
    {.what = "float depth", .files = set(COLOUR, {}, FLOATS), .depths = 1},
    {.what = "both", .files = set(COLOUR, MATTE, DEPTH), .mattes = 1, .depths = 1},
    {.what = "matte alone", .files = set(MATTE, {}, DEPTH), .mattes = 1},

    {.what = "even higher", .files = fields(set(colour(2, 3)), set(COLOUR))},
    {.what = "odd higher", .files = fields(set(COLOUR), set(colour(2, 3))), .told = {259, 60}},
    {.what = "other widths", .files = fields(set(COLOUR), set(colour(3, 2))), .told = {259, 60}},
    {.what = "other bits", .files = fields(set(COLOUR), set(MATTE)), .told = {259, 60}},
    {.what = "too high", .files = fields(set(colour(2, 8200)), set(colour(2, 8200))), .told = {60}},
    {.what = "past 16 bits", .files = fields(set(colour(2, 32768)), set(colour(2, 32768)))},
    {.what = "odd short", .files = fields(set(COLOUR), set({1})), .told = {60}},
    {.what = "odd missing", .files = fields(set(COLOUR), set({})), .told = {52}},
    {.what = "even missing", .files = {{"r/a", COLOUR}, {"r/a.o", COLOUR}}, .name = "a.o"},
    {.what = "matte fields", .files = fields(set(MATTE), set(MATTE)), .mattes = 1},
    {.what = "other mattes",
     .files = fields(set(COLOUR, MATTE), set(COLOUR, COLOUR)),
     .told = {259, 25}},
    {.what = "half a matte", .files = fields(set(COLOUR, MATTE), set(COLOUR))},
    {.what = "other depths",
     .files = fields(set(COLOUR, {}, DEPTH), set(COLOUR, {}, FLOATS)),
     .told = {259, 25}},
    {.what = "low depths",
     .files = fields(set(colour(2, 3), {}, DEPTH), set(COLOUR, {}, DEPTH)),
     .told = {257}},
};

const Files IMAGES[] = {
    set(COLOUR, MATTE, DEPTH),
    set(COLOUR, {}, FLOATS),
    set(MATTE),
    fields(set(COLOUR, MATTE, DEPTH), set(COLOUR, MATTE, DEPTH)),
    fields(set(COLOUR, {}, FLOATS), set(COLOUR, {}, FLOATS)),
};

class ExhaustTest : public ModuleTest {
  protected:
    void make_files(const Files &files)
    {
        for (const auto &[name, bytes] : files) {
            bytes.empty() ? void() : make(name, bytes);
        }
    }

    // Opens r/`name`, which must end as its messages say, and leaves these in `seen`.
    ImageHandle *open_image(const std::string &name)
    {
        ImageHandle *handle = standin_new_reader(path("r/" + name).c_str());
        vyn__err = 0;
        errno = EDOM; // the reason where no call fails
        result = module.read_open(handle);
        seen = messages();
        const int last = seen.empty() ? 0 : seen.back();
        const auto *ending = std::find_if(std::begin(ENDINGS), std::end(ENDINGS) - 1,
                                          [&](const Ending &e) { return e.message == last; });
        EXPECT_EQ(last, ending->message);
        EXPECT_EQ(result, ending->result);
        EXPECT_EQ(vyn__err, ending->code);
        EXPECT_EQ(result == 1 ? image_disagrees(handle) : failed_open_holds(handle), "");
        messages();
        return handle;
    }

    // A row's samples, or none when it cannot be read.
    std::vector<int32_t> ask(ImageHandle *handle, int32_t y)
    {
        void **rows = nullptr;
        const int32_t code = handle->scanline_proc(handle->priv->state, y, &rows);
        EXPECT_EQ(code, vyn__err);
        EXPECT_EQ(code, rows ? 0 : -18);
        const std::vector<int> told = messages();
        const bool undecodable = !told.empty() && told[0] == 59;
        EXPECT_EQ(told, rows          ? std::vector<int>()
                        : undecodable ? std::vector<int>({59, 55})
                                      : std::vector<int>({55}));
        return rows ? samples(*handle->priv->state, rows) : std::vector<int32_t>();
    }

    // The first rows from the top; and back again if all are good.
    void check_rows(ImageHandle *handle)
    {
        const int32_t height = handle->info->height;
        std::vector<std::vector<int32_t>> rows;
        bool good = true;
        for (int32_t y = height - 1; y >= std::max(0, height - 6); --y) {
            rows.push_back(ask(handle, y));
            good = good && !rows.back().empty();
        }
        for (size_t i = good ? rows.size() : 0; i-- > 0;) {
            EXPECT_EQ(ask(handle, height - 1 - static_cast<int32_t>(i)), rows[i]);
        }
    }

    // The image "a", whose main file is `main`, is what the first bytes of that say.
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
        ImageHandle *handle = open_image("a");
        if (result == 1) {
            const ImageInfo &info = *handle->info;
            EXPECT_EQ(whole && info.width > 0 && info.height > 0, qualifies);
            EXPECT_EQ(info.width, word(0));
            EXPECT_EQ(info.channel_count, word(8) == 24 ? 3 : 0);
            check_rows(handle);
        }
        EXPECT_EQ(handle->close_proc(handle), 0);
    }

    int32_t result = 0; // of the last open
    std::vector<int> seen;
    long tried = 0;
};

} // namespace

TEST_F(ExhaustTest, HeadersFitTogetherOrSayWhy)
{
    for (const Case &c : CASES) {
        SCOPED_TRACE(c.what);
        clear();
        make_files(c.files);
        ImageHandle *handle = open_image(c.name);
        EXPECT_EQ(seen, c.told);
        EXPECT_EQ(handle->priv->state->plane[PIX_MATTE].present, c.mattes);
        EXPECT_EQ(handle->priv->state->plane[PIX_DEPTH].present, c.depths);
        EXPECT_EQ(handle->close_proc(handle), 0);
    }
}

TEST_F(ExhaustTest, EveryPrefixAndEveryByte)
{
    for (const Files &files : IMAGES) {
        make_files(files);
        for (const auto &[name, bytes] : files) {
            SCOPED_TRACE(name);
            for (size_t length = 0; !bytes.empty() && length <= bytes.size(); ++length) {
                SCOPED_TRACE("cut to " + std::to_string(length));
                make(name, Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length)));
                check(files[0].first);
            }
            const int file = open(path(name).c_str(), O_WRONLY); // of no file: -1, for no byte
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
