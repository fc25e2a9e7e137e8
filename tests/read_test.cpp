// Opening images for reading, and their scanlines in any order.
#include "tests/support.h"

#include <stdlib.h>

#include <filesystem>
#include <iterator>
#include <random>
#include <sstream>
#include <utility>

namespace fs = std::filesystem;

namespace {

// The rows of an image of 3 by 5 pixels with both companions. Their packets differ in number, and
// some are empty.
const char *const ROWS[3][5] = {{"03010203", "010A0B0C 020D0E0F", "00FFFFFF 01101112 02131415",
                                 "01202122 01232425 01262728", "02303132 00000000 01333435"},
                                {"03AA", "01AB 02AC", "0000 03AD", "01B0 01B1 01B2", "02B3 01B4"},
                                {"00000001 00000002 00000003", "00000004 00000005 00000006",
                                 "00000007 00000008 00000009", "0000000A 0000000B 0000000C",
                                 "0000000D 0000000E 05F5E100"}};

class ReadTest : public ModuleTest {
  protected:
    void make_image(const std::string &name, size_t first = 0, size_t step = 1)
    {
        const int height = static_cast<int>((5 - first + step - 1) / step);
        Bytes bytes[] = {colour_header(3, height), colour_header(3, height, 8),
                         depth_header(3, height)};
        for (size_t kind = 0; kind < 3; ++kind) {
            for (size_t row = first; row < 5; row += step) {
                bytes[kind] = bytes[kind] + hex(ROWS[kind][row]);
            }
            make(std::vector{"r/", "mask/", "depth/"}[kind] + name, bytes[kind]);
        }
    }

    // Two sound images, one with a row that passes its width, and one that ends early.
    void make_images()
    {
        for (const char *name : {"whole.pix", "long.pix", "short.pix"}) {
            make_image(name);
        }
        make_image("pair.pix.e", 0, 2);
        make_image("pair.pix.o", 1, 2);
        Bytes bytes = contents("r/long.pix");
        bytes[18] = 9; // in file row 1
        make("r/long.pix", bytes);
        fs::resize_file(path("mask/short.pix"), 18); // within file row 3
    }
};

} // namespace

// The standard formats are gone through for one whose name begins with the host's format, then for
// one of the module's, then for any: with so many looks at an entry or at the end, which is the
// 17th.
TEST_F(ReadTest, TheFormatIsTheFirstOfItsSize)
{
    struct Case {
        const char *host;
        int width, height;
        const char *label = "unknown";
        long looks = 3 * 17L;
    };
    const Case cases[] = {
        {.host = "Vorla", .width = 720, .height = 486, .label = "NTSC 525-line video", .looks = 35},
        {.host = "NTSC DV", .width = 720, .height = 480, .label = "NTSC DV video", .looks = 2},
        {.host = "NTSC", .width = 720, .height = 576, .label = "PAL 625-line video", .looks = 37},
        {.host = "Vorla", .width = 720, .height = 5},
        {.host = "Vorla", .width = 972, .height = 486},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.label);
        make("r/a", colour_header(c.width, c.height));
        standin_reset_faults();
        ImageHandle *handle = reader("a");
        handle->format_name = c.host;
        open_image(handle);
        const float shape = static_cast<float>(c.width) / static_cast<float>(c.height);
        EXPECT_STREQ(handle->info->format_label, c.label);
        EXPECT_EQ(handle->info->aspect, c.looks < 3 * 17 ? 4.0F / 3 : shape);
        EXPECT_EQ(standin_calls(STANDIN_FMT_INFO), c.looks);
        close_image(handle);
    }
}

TEST_F(ReadTest, FieldsAndSingleFilesGiveTheSameRows)
{
    make_image("a.pix");
    make_image("shot.1e", 0, 2);
    make_image("shot.1o", 1, 2);
    std::vector<Samples> rows;
    for (const char *name : {"a.pix", "shot.1", "shot.1e", "shot.1o"}) {
        ImageHandle *handle = open_image(reader(name));
        rows = rows.empty() ? all_rows(handle) : rows;
        EXPECT_EQ(all_rows(handle), rows) << name;
        close_image(handle);
    }
    EXPECT_EQ(rows[1], (Samples{0x0C, 0x0F, 0x0F, 0x0B, 0x0E, 0x0E, 0x0A, 0x0D, 0x0D, 0xAB, 0xAC,
                                0xAC, 4, 5, 6}));
    EXPECT_EQ(rows[4].back(), 100000000);
}

// Only the very bits of 1e8 are nothing; what lies beside them, no number, zero and -1 is
// something.
TEST_F(ReadTest, FloatDepthsTellOnlySomethingFromNothing)
{
    make("r/a", colour_header(6, 1) + hex("06000000"));
    make("depth/a",
         depth_header(6, 1, 55655) + hex("4CBEBC20 4CBEBC1F 4CBEBC21 7FC00000 00000000 BF800000"));
    ImageHandle *handle = open_image(reader("a"));
    Samples row = ask(handle, 0);
    row.erase(row.begin(), row.begin() + 18);
    EXPECT_EQ(row, (Samples{0, 100000000, 100000000, 100000000, 100000000, 100000000}));
    close_image(handle);
}

// Long sequences of requests, on two opens of the same file: one remembers where rows begin, the
// other is made to forget and so goes back to the header every time. Nobody may see the difference,
// damage or not. Where no failure stands before the row, a third, opened for this row alone,
// agrees.
TEST_F(ReadTest, AnyOrderOfRequestsGivesTheSameRows)
{
    make_images();
    std::minstd_rand random(1);
    for (int sequence = 0; sequence < 400; ++sequence) {
        const char *const names[] = {"whole.pix", "pair.pix", "long.pix", "short.pix"};
        const char *name = names[sequence % 4];
        SCOPED_TRACE(std::string(name) + ", sequence " + std::to_string(sequence));
        ImageHandle *handle = open_image(reader(name));
        ImageHandle *forgetful = open_image(reader(name));
        const PixState &state = *handle->priv->state;
        PixState &other = *forgetful->priv->state;
        for (PixPlane &plane : other.plane) {
            plane.starts = nullptr;
        }
        free(std::exchange(other.table, nullptr));
        for (int request = 0; request < 12; ++request) {
            const auto y = static_cast<int32_t>(random() % 7) - 1;
            const bool apart =
                state.place != PIX_AT_ROW && state.row <= static_cast<uint32_t>(4 - y);
            const Samples answer = ask(handle, y);
            ASSERT_EQ(ask(forgetful, y), answer) << "scanline " << y;
            ASSERT_EQ(other.row, state.row);
            ImageHandle *fresh = open_image(reader(name));
            ASSERT_EQ(apart ? answer : ask(fresh, y), answer) << "scanline " << y;
            close_image(fresh);
        }
        close_image(handle);
        close_image(forgetful);
    }
}

// A row that cannot be decoded is read on from where that showed, and comes back as it was.
TEST_F(ReadTest, ReadingGoesOnBehindADamagedRow)
{
    make_images();
    ImageHandle *handle = open_image(reader("long.pix"));
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(ask(handle, 4), (Samples{3, 3, 3, 2, 2, 2, 1, 1, 1, 0xAA, 0xAA, 0xAA, 1, 2, 3}));
        EXPECT_EQ(ask(handle, 3), (Samples{-59, -55}));
        EXPECT_EQ(ask(handle, 3),
                  (Samples{18, 21, 21, 17, 20, 20, 16, 19, 19, 0xAB, 0xAC, 0xAC, 4, 5, 6}));
    }
    close_image(handle);
}

// Rows of a large file lie across the edges of the stream's buffers, at every place within a
// packet.
TEST_F(ReadTest, RowsAcrossTheEdgesOfBuffersComeBackInAnyOrder)
{
    constexpr int32_t height = 1100;
    const std::vector<Samples> rows = write_image(writer("a", 1001, height, 3, 1));
    ImageHandle *handle = open_image(reader("a"));
    std::minstd_rand random(1);
    for (int32_t request = 0; request < 3 * height; ++request) {
        const auto scattered = static_cast<int32_t>(random() % height);
        const int32_t orders[] = {height - 1 - request, request - height, scattered};
        const int32_t y = orders[request / height];
        ASSERT_TRUE(ask(handle, y) == rows[static_cast<size_t>(height - 1 - y)]) << y;
    }
    close_image(handle);
}

// What others do with standard input between two rows is undone by going back.
TEST_F(ReadTest, StandardInputMayBeMovedByOthers)
{
    make_image("a.pix");
    FILE *const kept = stdin;
    for (const char *file : {"r/a.pix", "mask/a.pix"}) {
        SCOPED_TRACE(file);
        stdin = fopen(path(file).c_str(), "r");
        ImageHandle *handle = open_image(reader("/dev/stdin"));
        const std::vector<Samples> rows = all_rows(handle);
        EXPECT_EQ(rows[0][0], file[0] == 'r' ? 3 : 0xAA);
        for (const int32_t y : {3, 2, 1, 0}) {
            EXPECT_EQ(module.is_file("/dev/stdin", stdin), 1); // reads its header
            EXPECT_EQ(ask(handle, 4), rows[0]);
            (void)fseek(stdin, 20, SEEK_SET);
            (void)ask(handle, y);
            EXPECT_EQ(ask(handle, 4), rows[0]);
            EXPECT_EQ(ask(handle, y), rows[static_cast<size_t>(4 - y)]);
        }
        close_image(handle);
        (void)fclose(stdin);
    }
    stdin = kept;
}

// Images of 1 by 1 pixel, the directory "r" as the current one, and a list of "r/none", "r/one" and
// "r/two". An attempt asks vyn__build_handle for its own name, and, when that is there, for the two
// others of the single file and of the fields. No directory holds the base name b.pix itself.
TEST_F(ReadTest, TheSearchTriesOnePlaceAfterTheOther)
{
    struct Case {
        const char *files, *name, *found = ""; // the empty name: the open fails
        long calls;                            // of vyn__build_handle
        long fails = 0;                        // that one of them
    };
    constexpr auto pairs = "a.e a.o two/a.e two/a.o";
    const Case cases[] = {
        {.files = "a one/a a.e a.o", .name = "a", .found = "a", .calls = 3},
        {.files = "one/a two/a a.e a.o", .name = "a", .found = "one/a", .calls = 4},
        {.files = pairs, .name = "a", .found = "a", .calls = 5},
        {.files = "two/a.e two/a.o", .name = "a", .found = "none/a", .calls = 6},
        {.files = "a two/a.e two/a.o", .name = "a.o", .found = "none/a", .calls = 4},
        {.files = "one/a a.o", .name = "a.o", .found = "one/a", .calls = 6},
        {.files = "two/a.e a one/a", .name = "a.e", .calls = 4},
        {.files = "", .name = "a", .calls = 4},
        {.files = "a one/a", .name = "a", .found = "one/a", .calls = 4, .fails = 1},
        {.files = "a one/a", .name = "a", .found = "one/a", .calls = 6, .fails = 3},
        {.files = pairs, .name = "a.e", .found = "none/a", .calls = 4, .fails = 1},
        {.files = pairs, .name = "a.e", .found = "none/a", .calls = 5, .fails = 2},
        {.files = pairs, .name = "a.e", .calls = 3, .fails = 3},
    };
    setenv("KV_IMG_DIR", (path("r/none") + ":" + path("r/one") + ":" + path("r/two")).c_str(), 1);
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.files) + ", without path " + std::to_string(c.fails));
        clear();
        fs::current_path(path("r"));
        std::istringstream names(c.files);
        for (std::string name; names >> name;) {
            make("r/" + name, colour_header(1, 1));
        }
        make("r/mask/a", colour_header(1, 1, 8)); // of "one/a"
        ImageHandle *handle = standin_new_reader(c.name);
        handle->name_is_exact = 0;
        standin_reset_faults();
        standin_fail(STANDIN_BUILD_HANDLE, c.fails, false);
        open_image(handle);
        EXPECT_EQ(standin_calls(STANDIN_BUILD_HANDLE), c.calls);
        EXPECT_EQ(told, *c.found ? std::vector<int>() : std::vector<int>{52});
        const PixPlane *planes = handle->priv->state->plane;
        const std::string name = planes[PIX_COLOUR].name ? planes[PIX_COLOUR].name : "";
        EXPECT_EQ(name, fs::path(strlen(c.found) > 1 ? path("r") : "") / c.found);
        EXPECT_EQ(planes[PIX_MATTE].present, strcmp(c.found, "one/a") == 0);
        close_image(handle);
        fs::current_path("/");
    }
    unsetenv("KV_IMG_DIR");
}
