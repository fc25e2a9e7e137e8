// Opening images for reading, and their scanlines in any order.
#include "tests/support.h"

#include <stdlib.h>

#include <filesystem>
#include <random>
#include <sstream>

namespace fs = std::filesystem;

using ReadTest = ModuleTest;

// The module looks through the standard formats three times for one of the image's size: among the
// names that begin with the host's format, among those that begin with "vorla", and among all. It
// takes the first that it finds. `looks` counts the calls of FMT_info: 17 for each full pass, which
// are 16 formats and the end.
TEST_F(ReadTest, TheFirstStandardFormatOfTheSizeGivesLabelAndAspect)
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
        {.host = "Vorla", .width = 3, .height = 5}, // no standard format: the aspect is 3 / 5
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.label);
        make("r/a", colour_header(c.width, c.height));
        standin_reset_faults();
        ImageHandle *handle = reader("a");
        handle->format_name = c.host;
        open_image(handle);
        EXPECT_STREQ(handle->info->format_label, c.label);
        EXPECT_EQ(handle->info->aspect, c.width == 3 ? 3.0F / 5 : 4.0F / 3);
        EXPECT_EQ(standin_calls(STANDIN_FMT_INFO), c.looks);
        close_image(handle);
    }
}

// A float sample with exactly the bits of 1e8 becomes 0. Its two neighbours, NaN, 0 and -1 become
// 100000000. A packet may have the count 0.
TEST_F(ReadTest, RowsHaveTheSamplesOfTheFiles)
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

// A row is longer than the buffer of its stream. None of its floats is 1e8, so that all become
// 100000000.
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

// Asking again for a row that cannot be decoded reads on behind the packet that was too long. After
// going back to the first row, the damaged row fails as it did the first time.
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

// Other code may move standard input between two rows. Going back to an earlier row seeks to the
// first row again, and so the rows from there on are right. The last sample of the last row, which
// the test compares with what was written, is number 8 for blue and number 11 for the matte.
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

// Images of 1 by 1 pixel. The current directory is "r", and the search list has "r/none", "r/one"
// and "r/two". Each attempt asks vyn__build_handle for the path of one file, the single or the even
// one; when that file is there, also for the two other paths. A pair is found by its even file; its
// base name is in no directory of the list, so that it gets the path in the first one, "none/a".
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
