// Opening images for reading, and their scanlines in any order.
#include "tests/support.h"

#include <stdlib.h>

#include <filesystem>
#include <random>
#include <sstream>

namespace fs = std::filesystem;

using ReadTest = ModuleTest;

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
        EXPECT_EQ(handle->info->aspect, c.looks < 3 * 17L ? 4.0F / 3 : shape);
        EXPECT_EQ(standin_calls(STANDIN_FMT_INFO), c.looks);
        close_image(handle);
    }
}

// Of the bits of a float only those of 1e8 are nothing; what lies beside them, no number, zero and
// -1 are something. Packets may be empty.
TEST_F(ReadTest, RowsAreWhatTheBytesSay)
{
    make("r/a", colour_header(6, 1) + hex("00FFFFFF 02010203 00000000 01040506 03070809"));
    make("mask/a", colour_header(6, 1, 8) + hex("05AA 0000 01AB"));
    make("depth/a",
         depth_header(6, 1, 55655) + hex("4CBEBC20 4CBEBC1F 4CBEBC21 7FC00000 00000000 BF800000"));
    ImageHandle *handle = open_image(reader("a"));
    EXPECT_EQ(ask(handle, 0),
              (Samples{3, 3,         6,         9,         9,         9,        2,    2,
                       5, 8,         8,         8,         1,         1,        4,    7,
                       7, 7,         0xAA,      0xAA,      0xAA,      0xAA,     0xAA, 0xAB,
                       0, 100000000, 100000000, 100000000, 100000000, 100000000}));
    close_image(handle);
}

// A row is longer than the buffers of its stream, and all its floats are something.
TEST_F(ReadTest, FloatsAreConvertedAcrossTheEdgesOfBuffers)
{
    write_image(writer("a", 16383, 2, 3, 0, 1));
    const Bytes samples = contents("depth/a");
    make("depth/a", depth_header(16383, 2, 55655) + Bytes(samples.begin() + 8, samples.end()));
    ImageHandle *handle = open_image(reader("a"));
    const Samples row = ask(handle, 1);
    EXPECT_EQ(std::count(row.begin() + 3L * 16383, row.end(), 100000000), 16383);
    close_image(handle);
}

// The same image as a single file, as fields, and with a matte that ends early.
TEST_F(ReadTest, AnyOrderOfRequestsGivesTheSameRows)
{
    const std::vector<Samples> rows = write_image(writer("whole", 3, 5, 3, 1, 1));
    EXPECT_EQ(write_image(writer("short", 3, 5, 3, 1, 1)), rows);
    write_image(writer("pair.1e", 3, 3, 3, 1, 1), 0, 2);
    write_image(writer("pair.1o", 3, 2, 3, 1, 1), 1, 2);
    fs::resize_file(path("mask/short"), fs::file_size(path("mask/short")) - 1);
    std::minstd_rand random(1);
    for (int sequence = 0; sequence < 1000; ++sequence) {
        const char *const names[] = {"whole", "pair.1", "pair.1e", "pair.1o", "short"};
        const char *name = names[sequence % 5];
        SCOPED_TRACE(std::string(name) + ", sequence " + std::to_string(sequence));
        ImageHandle *handle = open_image(reader(name));
        for (int request = 0; request < 12; ++request) {
            const auto y = static_cast<int32_t>(random() % 7) - 1;
            const bool there = y < 5 && y >= (name[0] == 's' ? 1 : 0);
            const Samples none = {y < 0 || y > 4 ? -53 : -55};
            ASSERT_EQ(ask(handle, y), there ? rows[static_cast<size_t>(4 - y)] : none) << y;
        }
        close_image(handle);
    }
}

// A row that cannot be decoded is read on from where that showed, and comes back as it was.
TEST_F(ReadTest, ReadingGoesOnBehindADamagedRow)
{
    make("r/a", colour_header(3, 4) + hex("03010203 09040506 010A0B0C 020D0E0F 00010203"));
    ImageHandle *handle = open_image(reader("a"));
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(ask(handle, 3), (Samples{3, 3, 3, 2, 2, 2, 1, 1, 1}));
        EXPECT_EQ(ask(handle, 2), (Samples{-59, -55}));
        EXPECT_EQ(ask(handle, 2), (Samples{12, 15, 15, 11, 14, 14, 10, 13, 13}));
        EXPECT_EQ(ask(handle, 1), Samples{-55});
    }
    close_image(handle);
}

// Rows of a large file lie across the edges of the stream's buffers, at every place within a
// packet.
TEST_F(ReadTest, RowsAcrossTheEdgesOfBuffersComeBackInAnyOrder)
{
    constexpr int32_t height = 1100;
    const std::vector<Samples> rows = write_image(writer("a", 1001, height, 3, 1, 1));
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
    const std::vector<Samples> written = write_image(writer("a.pix", 3, 5, 3, 1));
    FILE *const kept = stdin;
    for (const char *file : {"r/a.pix", "mask/a.pix"}) {
        stdin = fopen(path(file).c_str(), "r");
        (void)fseek(stdin, 0, SEEK_END);
        ImageHandle *handle = open_image(reader("/dev/stdin"));
        const std::vector<Samples> rows = all_rows(handle);
        EXPECT_EQ(rows[4].back(), written[4][file[0] == 'r' ? 8 : 11]);
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
        {.files = pairs, .name = "a", .found = "a", .calls = 5},
        {.files = "two/a.e two/a.o", .name = "a", .found = "none/a", .calls = 6},
        {.files = "a two/a.e two/a.o", .name = "a.o", .found = "none/a", .calls = 4},
        {.files = "two/a.e a one/a", .name = "a.e", .calls = 4},
        {.files = "", .name = "a", .calls = 4},
        {.files = "a one/a", .name = "a", .found = "one/a", .calls = 6, .fails = 3},
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
