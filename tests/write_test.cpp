// Opening images for writing, and what ends up in the files.
#include "tests/support.h"

#include <filesystem>

namespace fs = std::filesystem;

const Bytes ROWS = hex("02030201 02060504  02030201 02060504");
const Bytes HEADER = hex("0004 0002 0000 0001 0018");
const Bytes COLOUR = HEADER + ROWS;
const Bytes MATTE = hex("0004 0002 0000 0001 0008  0409 0409");
const Bytes DEPTH = hex("0000DD4F 0004 0002  00000001 05F5E100 FFFFFFFF 80000000"
                        "00000001 05F5E100 FFFFFFFF 80000000");

using WriteTest = ModuleTest;

TEST_F(WriteTest, WhatIsWrittenFollowsDescriptionAndChoice)
{
    struct Case {
        int32_t channels = 3, mattes = 0, depths = 0, choice = 2;
        std::map<std::string, Bytes> files = {{"r/a", COLOUR}};
        std::pair<int32_t, int32_t> kept = {0, 0}; // mattes and depths
        ImageWindow window = {100, 103, -1, 0};
        int32_t rows = 2; // that are accepted, of two
    };
    const int32_t low = INT32_MIN;
    const int32_t high = INT32_MAX;
    const std::map<std::string, Bytes> both = {{"mask/a", MATTE}, {"r/a", COLOUR}};
    const std::map<std::string, Bytes> all = {
        {"depth/a", DEPTH}, {"mask/a", MATTE}, {"r/a", COLOUR}};
    const Case cases[] = {
        {},
        {.mattes = 1, .depths = 1, .choice = 0},
        {.mattes = 1, .depths = 1, .choice = 1, .files = both, .kept = {1, 0}},
        {.mattes = 1, .depths = 1, .choice = 2, .files = all, .kept = {1, 1}},
        {.mattes = 1, .depths = 1, .choice = 7},
        {.depths = 1, .files = {{"depth/a", DEPTH}, {"r/a", COLOUR}}, .kept = {0, 1}},
        {.channels = 0, .mattes = 1, .choice = 0, .files = {{"r/a", MATTE}}, .kept = {1, 0}},
        {.channels = 0, .mattes = 1, .depths = 1, .files = {{"r/a", MATTE}}, .kept = {1, 1}},
        {.channels = 0, .depths = 1, .choice = 0, .files = {{"r/a", DEPTH}}, .kept = {0, 1}},
        {.channels = 0, .files = {{"r/a", {}}}},
        {.channels = 2, .mattes = 1, .files = {{"mask/a", MATTE}, {"r/a", {}}}, .kept = {1, 0}},
        {.files = {{"r/a", hex("FFF8 0002 0000 0001 0018")}}, .window = {9, low, 0, 1}},
        {.files = {{"r/a", HEADER}}, .window = {0, 3, high, low}, .rows = 0},
        {.files = {{"r/a", hex("0004 0000 0000 FFFF 0018") + ROWS}}, .window = {0, 3, low, high}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.channels << " channels, " << c.mattes << " mattes, "
                                        << c.depths << " depths, choice " << c.choice << ", rows "
                                        << c.window.y_min << " to " << c.window.y_max);
        clear();
        ImageHandle *handle = writer("a", 1, 1, c.channels, c.mattes, c.depths);
        handle->info->data_window = c.window;
        standin_request(handle, 1, c.choice);
        ASSERT_EQ(module.write_open(handle), 1);
        EXPECT_EQ(std::pair(handle->info->matte_count, handle->info->aux_count), c.kept);
        PixState *state = handle->priv->state;
        EXPECT_EQ(state->mode, 'w');
        uint8_t bytes[][4] = {{1, 1, 4, 4}, {2, 2, 5, 5}, {3, 3, 6, 6}, {9, 9, 9, 9}};
        int32_t depth[] = {1, 100000000, -1, INT32_MIN};
        void *rows[5] = {bytes[0], bytes[1], bytes[2]}; // without those of absent kinds
        void **next = rows + (state->plane[PIX_COLOUR].present ? 3 : 0);
        *next = bytes[3];
        next[state->plane[PIX_MATTE].present ? 1 : 0] = depth;
        for (const int32_t row : {2, -1, 0, 0, 1, -1}) { // some are not the next one
            const bool is_next = row == static_cast<int32_t>(state->row) && row < c.rows;
            vyn__err = -99;
            const int32_t code = handle->scanline_proc(state, state->height - 1 - row, rows);
            EXPECT_EQ(code, is_next ? 0 : -2);
            EXPECT_EQ(vyn__err, code);
            EXPECT_EQ(messages(), is_next ? std::vector<int>() : std::vector<int>{53});
        }
        EXPECT_EQ(handle->scanline_proc(state, -1, rows), -2);
        messages();
        close_image(handle);
        EXPECT_EQ(files(), c.files);
    }
}

TEST_F(WriteTest, WhatCannotBeStoredIsRefusedWithoutAFile)
{
    ImageHandle *handle = writer("a", 4, 2, 3, 1);
    ImageInfo *info = handle->info;
    info->channel_format[0] = '?';
    struct Case {
        int32_t *word; // that changes, and stays so
        int32_t value;
        std::vector<int> messages;
    };
    const Case cases[] = {
        {.word = &info->matte_width, .value = 16, .messages = {75, 80}},
        {.word = &info->matte_type, .value = 0, .messages = {75, 79}},
        {.word = &info->matte_count, .value = 2, .messages = {75, 78}},
        {.word = &info->aux_count, .value = 1, .messages = {75, 78}},
        {.word = &info->aux_width, .value = 32, .messages = {75, 78, 71}},
        {.word = &info->aux_count, .value = 2, .messages = {75, 78, 69}},
        {.word = &info->channel_width, .value = 16, .messages = {75, 73, 78, 69}},
        {.word = &info->channel_type, .value = 0, .messages = {75, 72, 78, 69}},
        {.word = &handle->image_count, .value = 2, .messages = {61, 75, 72, 78, 69}},
    };
    for (const Case &c : cases) {
        *c.word = c.value;
        vyn__err = -1;
        EXPECT_EQ(module.write_open(handle), 0);
        EXPECT_EQ(vyn__err, -16);
        EXPECT_EQ(messages(), c.messages);
        EXPECT_EQ(handle->priv, nullptr);
    }
    vyn__free_obj(handle);
    EXPECT_TRUE(files().empty()) << files().begin()->first;
}

TEST_F(WriteTest, StandardOutputGetsTheMainFile)
{
    FILE *const kept = std::exchange(stdout, fopen(path("out").c_str(), "w"));
    write_image(writer("/dev/stdout", 3, 2, 3));
    (void)fclose(std::exchange(stdout, kept));
    write_image(writer("a", 3, 2, 3));
    EXPECT_EQ(contents("out"), contents("r/a"));
}

TEST_F(WriteTest, ALinkIsNotRemoved)
{
    make("target", hex("010203"));
    fs::create_symlink(path("target"), path("r/a"));
    standin_fail(STANDIN_SAVE, 1, false);
    ImageHandle *handle = writer("a", 4, 2, 3);
    handle->name_is_exact = 0;
    EXPECT_EQ(module.write_open(handle), 0);
    EXPECT_TRUE(fs::is_symlink(path("r/a"))) << "the failed open has removed the link";
    EXPECT_EQ(messages(), (std::vector<int>{94, 52}));
    close_image(handle);
}
