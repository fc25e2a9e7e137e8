// Opening images for writing, and what ends up in the files.
#include "tests/support.h"

#include <filesystem>
#include <utility>

namespace fs = std::filesystem;

namespace {

using Files = std::vector<std::string>;

class WriteTest : public ModuleTest {
  protected:
    // Writes all rows of an open image with the same samples; returns the codes.
    static std::vector<int32_t> write_rows(ImageHandle *handle, void **rows)
    {
        std::vector<int32_t> codes;
        for (int32_t y = handle->priv->state->height - 1; y >= 0; --y) {
            codes.push_back(handle->scanline_proc(handle->priv->state, y, rows));
        }
        return codes;
    }

    uint8_t red[4] = {255, 255, 0, 0};
    uint8_t green[4] = {255, 255, 0, 0};
    uint8_t blue[4] = {255, 255, 0, 0};
    uint8_t matte[4] = {255, 255, 255, 255};
    int32_t depth[4] = {1, 100000000, -1, 2};
    void *full[5] = {red, green, blue, matte, depth};
};

} // namespace

TEST_F(WriteTest, ColourMatteAndDepth)
{
    ImageHandle *handle = writer("a.pix", 4, 2, 3, 1, 1);
    ASSERT_EQ(module.write_open(handle), 1);
    EXPECT_EQ(handle->priv->state->mode, 'w');
    EXPECT_EQ(write_rows(handle, full), (std::vector<int32_t>{0, 0}));
    EXPECT_EQ(handle->scanline_proc(nullptr, 1, full), -2);
    EXPECT_EQ(handle->scanline_proc(handle->priv->state, -1, full), -2); // all are written
    EXPECT_EQ(messages(), std::vector<int>{53});
    EXPECT_EQ(handle->close_proc(handle), 0);
    const Bytes row = hex("02FFFFFF 02000000");
    const Bytes depths = hex("00000001 05F5E100 FFFFFFFF 00000002");
    EXPECT_EQ(contents("r/a.pix"), hex("0004 0002 0000 0001 0018") + row + row);
    EXPECT_EQ(contents("mask/a.pix"), hex("0004 0002 0000 0001 0008 04FF 04FF"));
    EXPECT_EQ(contents("depth/a.pix"), hex("0000DD4F 0004 0002") + depths + depths);
    const Picture again = read("a.pix");
    ASSERT_EQ(again.rows.size(), 2U);
    EXPECT_EQ(again.rows[1],
              (std::vector<int32_t>{255, 255, 0,   0,   255, 255, 0, 0,         255, 255,
                                    0,   0,   255, 255, 255, 255, 1, 100000000, -1,  2}));
}

TEST_F(WriteTest, WhatIsWrittenFollowsDescriptionAndChoice)
{
    // clang-format off
    // The main file is told by its first bytes.
    struct Case { int32_t channels, mattes, depths, choice; Files files;
                  int32_t kept_mattes, kept_depths; const char *main; };
    const char *const colour = "0004 0002 0000 0001 0018";
    const char *const matte_alone = "0004 0002 0000 0001 0008 04FF";
    const Case cases[] = {
        {3, 0, 0, 2, {"r/a"}, 0, 0, colour},
        {3, 1, 1, 0, {"r/a"}, 0, 0, colour},
        {3, 1, 1, 1, {"mask/a", "r/a"}, 1, 0, colour},
        {3, 1, 1, 2, {"depth/a", "mask/a", "r/a"}, 1, 1, colour},
        {3, 0, 1, 2, {"depth/a", "r/a"}, 0, 1, colour},
        {3, 1, 1, 7, {"r/a"}, 0, 0, colour},
        {0, 1, 0, 0, {"r/a"}, 1, 0, matte_alone},
        {0, 1, 1, 2, {"r/a"}, 1, 1, matte_alone},
        {0, 0, 1, 0, {"r/a"}, 0, 1, "0000DD4F 0004 0002 00000001"},
        {0, 0, 0, 2, {"r/a"}, 0, 0, ""},
        {2, 1, 0, 2, {"mask/a", "r/a"}, 1, 0, ""}, // no colour, but companions
        {-1, -1, -1, 2, {"r/a"}, -1, -1, ""},
    };
    // clang-format on
    for (const Case &c : cases) {
        clear();
        ImageHandle *handle = writer("a", 4, 2, c.channels, c.mattes, c.depths);
        standin_request(handle, 1, c.choice);
        ASSERT_EQ(module.write_open(handle), 1);
        EXPECT_EQ(handle->info->matte_count, c.kept_mattes);
        EXPECT_EQ(handle->info->aux_count, c.kept_depths);
        const PixState &state = *handle->priv->state;
        void *rows[5] = {red, green, blue, matte, depth};
        void **next = rows + (state.plane[PIX_COLOUR].present ? 3 : 0); // absent kinds are left out
        *next = matte;
        next[state.plane[PIX_MATTE].present ? 1 : 0] = depth;
        EXPECT_EQ(write_rows(handle, rows), (std::vector<int32_t>{0, 0}));
        EXPECT_EQ(handle->close_proc(handle), 0);
        EXPECT_EQ(files(), c.files);
        Bytes start = contents("r/a");
        start.resize(*c.main ? hex(c.main).size() : start.size());
        EXPECT_EQ(start, hex(c.main)); // or nothing at all
    }
    EXPECT_EQ(messages(), std::vector<int>{});
}

TEST_F(WriteTest, Descriptions)
{
    // clang-format off
    const std::pair<Prepare, std::vector<int>> cases[] = {
        {[](ImageHandle *h) { h->image_count = 2; }, {61}},
        {[](ImageHandle *h) { h->info->channel_format[0] = '?'; }, {75}},
        {[](ImageHandle *h) { h->info->channel_type = 0, h->info->channel_width = 16; }, {72}},
        {[](ImageHandle *h) { h->info->channel_width = 16; }, {73}},
        {[](ImageHandle *h) { h->info->matte_count = 2, h->info->matte_type = 0; }, {78}},
        {[](ImageHandle *h) { h->info->matte_type = 0, h->info->matte_width = 16; }, {79}},
        {[](ImageHandle *h) { h->info->matte_width = 16; }, {80}},
        {[](ImageHandle *h) { h->info->aux_count = 2, h->info->aux_width = 32; }, {69}},
        {[](ImageHandle *h) { h->info->aux_width = 32; }, {71}},
        {[](ImageHandle *h) {
             h->image_count = 0, h->info->channel_type = 0, h->info->channel_format[0] = '?';
             h->info->matte_width = 1, h->info->aux_width = 30; }, {61, 75, 72, 80, 71}},
    };
    // clang-format on
    for (const auto &[change, expected] : cases) {
        ImageHandle *handle = writer("a", 4, 2, 3, 1, 1);
        change(handle);
        vyn__err = -1;
        EXPECT_EQ(module.write_open(handle), 0);
        EXPECT_EQ(vyn__err, -16);
        EXPECT_EQ(messages(), expected);
        EXPECT_EQ(handle->priv, nullptr);
        vyn__free_obj(handle);
    }
    EXPECT_EQ(files(), Files{});
}

TEST_F(WriteTest, WindowsOfAnySize)
{
    // clang-format off
    // Of two rows, `rows` are accepted.
    struct Case { ImageWindow window; const char *header; int32_t rows; };
    const int32_t low = INT32_MIN;
    const int32_t high = INT32_MAX;
    const Case cases[] = {
        {{100, 103, 50, 51}, "0004 0002 0000 0001 0018", 2},
        {{-2, 1, -1, 0}, "0004 0002 0000 0001 0018", 2},
        {{0, -1, 0, 1}, "0000 0002 0000 0001 0018", 2}, // rows of nothing
        {{0, 3, 0, -1}, "0004 0000 0000 FFFF 0018", 0},
        {{high, low, 0, 0}, "0002 0001 0000 0000 0018", 1},
        {{0, 3, high, low}, "0004 0002 0000 0001 0018", 0},
        {{0, 3, low, high}, "0004 0000 0000 FFFF 0018", 2},
        {{0, 3, 0, 65536}, "0004 0001 0000 0000 0018", 2},
    };
    // clang-format on
    for (const Case &c : cases) {
        ImageHandle *handle = writer("a", 1, 1, 3);
        handle->info->data_window = c.window;
        ASSERT_EQ(module.write_open(handle), 1);
        PixState *state = handle->priv->state;
        for (const int32_t y : {low, -1, high}) {
            EXPECT_EQ(handle->scanline_proc(state, y, full), -2);
        }
        for (int32_t row = 0; row < 2; ++row) {
            const int32_t code = handle->scanline_proc(state, state->height - 1 - row, full);
            EXPECT_EQ(code, row < c.rows ? 0 : -2);
        }
        EXPECT_EQ(handle->close_proc(handle), 0);
        Bytes header = contents("r/a");
        const bool narrow = c.window.x_max - int64_t{c.window.x_min} == 3;
        EXPECT_EQ(header.size(), narrow ? 10U + 8U * static_cast<unsigned>(c.rows) : 10U);
        header.resize(10);
        EXPECT_EQ(header, hex(c.header));
    }
}

// --- Files that cannot be written -----------------------------------------------------------

TEST_F(WriteTest, AFileThatCannotBeOpenedStays)
{
    fs::create_directory(path("r/a"));
    for (const bool exact : {true, false}) {
        ImageHandle *handle = writer("a", 4, 2, 3);
        handle->name_is_exact = exact ? 1 : 0;
        EXPECT_EQ(module.write_open(handle), 0);
        EXPECT_EQ(vyn__err, -5);
        EXPECT_EQ(messages(), std::vector<int>{52});
        EXPECT_EQ(texts.back(), "Cannot open file " + path("r/a") + "; Is a directory");
        EXPECT_EQ(handle->scanline_proc(handle->priv->state, 0, full), -2);
        messages();
        EXPECT_EQ(handle->close_proc(handle), 0);
    }
    EXPECT_TRUE(fs::exists(path("r/a")));
}

TEST_F(WriteTest, ALinkIsNotRemoved)
{
    make("target", hex("010203"));
    fs::create_symlink(path("target"), path("r/a"));
    standin_fail(STANDIN_SAVE, 1, false);
    ImageHandle *handle = writer("a", 4, 2, 3);
    handle->name_is_exact = 0;
    EXPECT_EQ(module.write_open(handle), 0);
    EXPECT_TRUE(fs::is_symlink(path("r/a")));
    EXPECT_EQ(messages(), (std::vector<int>{94, 52}));
    handle->close_proc(handle);
}
