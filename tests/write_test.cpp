// Opening images for writing, and what ends up in the files.
#include "tests/support.h"

#include <filesystem>
#include <map>

namespace fs = std::filesystem;

namespace {

const Bytes ROWS = hex("02030201 02060504  02030201 02060504");
const Bytes COLOUR = hex("0004 0002 0000 0001 0018") + ROWS;
const Bytes MATTE = hex("0004 0002 0000 0001 0008  0409 0409");
const Bytes DEPTH = hex("0000DD4F 0004 0002  00000001 05F5E100 FFFFFFFF 80000000"
                        "00000001 05F5E100 FFFFFFFF 80000000");

class WriteTest : public ModuleTest {
  protected:
    // The code of the call, which vyn__err has too.
    static int32_t write_row(const ImageHandle *handle, PixState *state, int32_t y, void **rows)
    {
        vyn__err = -99;
        const int32_t code = handle->scanline_proc(state, y, rows);
        EXPECT_EQ(vyn__err, code);
        return code;
    }

    uint8_t red[4] = {1, 1, 4, 4};
    uint8_t green[4] = {2, 2, 5, 5};
    uint8_t blue[4] = {3, 3, 6, 6};
    uint8_t matte[4] = {9, 9, 9, 9};
    int32_t depth[4] = {1, 100000000, -1, INT32_MIN};
};

} // namespace

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
        {.channels = -1, .mattes = -1, .depths = -1, .files = {{"r/a", {}}}, .kept = {-1, -1}},
        {.files = {{"r/a", hex("FFF8 0002 0000 0001 0018")}}, .window = {9, low, 0, 1}},
        {.files = {{"r/a", hex("0004 0002 0000 0001 0018")}},
         .window = {0, 3, high, low},
         .rows = 0},
        {.files = {{"r/a", hex("0004 0000 0000 FFFF 0018") + ROWS}}, .window = {0, 3, low, high}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(&c - cases);
        clear();
        ImageHandle *handle = writer("a", 1, 1, c.channels, c.mattes, c.depths);
        handle->info->data_window = c.window;
        standin_request(handle, 1, c.choice);
        ASSERT_EQ(module.write_open(handle), 1);
        EXPECT_EQ(std::pair(handle->info->matte_count, handle->info->aux_count), c.kept);
        PixState *state = handle->priv->state;
        EXPECT_EQ(state->mode, 'w');
        void *rows[5] = {red, green, blue, matte, depth}; // without those of absent kinds
        void **next = rows + (state->plane[PIX_COLOUR].present ? 3 : 0);
        *next = matte;
        next[state->plane[PIX_MATTE].present ? 1 : 0] = depth;
        EXPECT_EQ(write_row(handle, nullptr, 1, rows), -2);
        for (int32_t row = 0; row < 2; ++row) {
            EXPECT_EQ(write_row(handle, state, state->height - row, rows), -2);
            const int32_t y = state->height - 1 - row;
            EXPECT_EQ(write_row(handle, state, y, rows), row < c.rows ? 0 : -2);
        }
        EXPECT_EQ(write_row(handle, state, -1, rows), -2);
        EXPECT_EQ(messages(), std::vector<int>(static_cast<size_t>(5 - c.rows), 53));
        EXPECT_EQ(handle->close_proc(handle), 0);
        std::map<std::string, Bytes> written;
        for (const std::string &file : files()) {
            written[file] = contents(file);
        }
        EXPECT_EQ(written, c.files);
    }
}

TEST_F(WriteTest, WhatCannotBeStoredIsRefusedWithoutAFile)
{
    ImageHandle *handle = writer("a", 4, 2, 3, 1, 1);
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
    EXPECT_EQ(files(), std::vector<std::string>{});
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

TEST_F(WriteTest, AHandleWithNothingOpenIsDestroyedByTheClose)
{
    ImageHandle *handle = writer("a", 4, 2, 3);
    ASSERT_EQ(module.write_open(handle), 1);
    const CloseProc close = handle->close_proc;
    EXPECT_EQ(close(handle), 0);
    vyn__err = -99;
    EXPECT_EQ(close(nullptr), 0);
    EXPECT_EQ(vyn__err, -99);
    standin_reset_faults();
    EXPECT_EQ(close(standin_new_reader("a")), 0);
    EXPECT_EQ(vyn__err, 0);
    EXPECT_EQ(standin_calls(STANDIN_FREE_OBJ), 1);
}
