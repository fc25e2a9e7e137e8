// Opening images for reading, and their scanlines in any order.
#include "tests/support.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <random>
#include <sstream>
#include <utility>

namespace fs = std::filesystem;

namespace {

// An image of 3 by 5 pixels with both companions, whole or as fields. The packets of its rows
// differ in number and hold empty ones.
const char *const COLOUR_ROWS[] = {"03010203", "010A0B0C 020D0E0F", "00FFFFFF 01101112 02131415",
                                   "01202122 01232425 01262728", "02303132 00000000 01333435"};
const char *const MATTE_ROWS[] = {"03AA", "01AB 02AC", "0000 03AD", "01B0 01B1 01B2", "02B3 01B4"};
const char *const DEPTH_ROWS[] = {"00000001 00000002 00000003", "00000004 00000005 00000006",
                                  "00000007 00000008 00000009", "0000000A 0000000B 0000000C",
                                  "0000000D 0000000E 05F5E100"};

const char *const IMAGES[] = {"whole.pix", "pair.pix", "long.pix", "short.pix"};

Bytes rows_from(const char *const (&rows)[5], size_t first, size_t step)
{
    Bytes bytes;
    for (size_t row = first; row < 5; row += step) {
        bytes = bytes + hex(rows[row]);
    }
    return bytes;
}

class ReadTest : public ModuleTest {
  protected:
    void make_image(const std::string &name, size_t first = 0, size_t step = 1)
    {
        const int height = static_cast<int>((5 - first + step - 1) / step);
        make("r/" + name, colour_header(3, height) + rows_from(COLOUR_ROWS, first, step));
        make("mask/" + name, colour_header(3, height, 8) + rows_from(MATTE_ROWS, first, step));
        make("depth/" + name, depth_header(3, height) + rows_from(DEPTH_ROWS, first, step));
    }

    void make_fields(const std::string &even, const std::string &odd)
    {
        make_image(even, 0, 2);
        make_image(odd, 1, 2);
    }

    // The images of IMAGES: two sound, one with a row that passes its width, one that ends early.
    void make_damaged_images()
    {
        make_image("whole.pix");
        make_fields("pair.pix.e", "pair.pix.o");
        make_image("long.pix");
        Bytes bytes = contents("r/long.pix");
        bytes[18] = 9; // in file row 1
        make("r/long.pix", bytes);
        make_image("short.pix");
        bytes = contents("mask/short.pix");
        bytes.resize(18); // within file row 3
        make("mask/short.pix", bytes);
    }

    // The samples of a scanline and the code of the call; its messages.
    using Answer = std::pair<std::vector<int32_t>, std::vector<int>>;

    Answer ask(ImageHandle *handle, int32_t y)
    {
        void **rows = nullptr;
        const int32_t code = handle->scanline_proc(handle->priv->state, y, &rows);
        EXPECT_EQ(vyn__err, code);
        auto row = code == 0 ? samples(*handle->priv->state, rows) : std::vector<int32_t>();
        row.push_back(code);
        return {row, messages()};
    }

    // Opens an image, hands the open handle to `use` and closes it.
    void with_image(const std::string &name, const std::function<void(ImageHandle *)> &use)
    {
        ImageHandle *handle = standin_new_reader(path("r/" + name).c_str());
        vyn__err = 0;
        ASSERT_EQ(module.read_open(handle), 1);
        ASSERT_EQ(image_disagrees(handle), "");
        EXPECT_EQ(handle->scanline_proc(nullptr, 0, nullptr), -2);
        EXPECT_EQ(vyn__err, -2);
        use(handle);
        EXPECT_EQ(handle->close_proc(handle), 0);
        EXPECT_EQ(vyn__err, 0);
    }
};

} // namespace

// --- What an open tells the host ------------------------------------------------------------

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
        {.host = "Vorla", .width = 3, .height = 5},
        {.host = "Vorla", .width = 720, .height = 5},
        {.host = "Vorla", .width = 972, .height = 486},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.label);
        make("r/a", colour_header(c.width, c.height));
        standin_reset_faults();
        const Picture picture =
            read("a", [&](ImageHandle *handle) { handle->format_name = c.host; });
        const float shape = static_cast<float>(c.width) / static_cast<float>(c.height);
        EXPECT_EQ(picture.label, c.label);
        EXPECT_EQ(picture.info.aspect, c.looks < 3 * 17 ? 4.0F / 3 : shape);
        EXPECT_EQ(standin_calls(STANDIN_FMT_INFO), c.looks);
    }
}

TEST_F(ReadTest, RowsInFileOrder)
{
    make_image("a.pix");
    make_fields("f.pix.e", "f.pix.o");
    make_fields("shot.1e", "shot.1o");
    const Picture single = read("a.pix");
    ASSERT_EQ(single.rows.size(), 5U);
    EXPECT_EQ(single.rows[1], (std::vector<int32_t>{0x0C, 0x0F, 0x0F, 0x0B, 0x0E, 0x0E, 0x0A, 0x0D,
                                                    0x0D, 0xAB, 0xAC, 0xAC, 4, 5, 6}));
    EXPECT_EQ(single.rows[4].back(), 100000000);
    for (const char *name : {"f.pix", "f.pix.e", "f.pix.o", "shot.1", "shot.1e", "shot.1o"}) {
        const Picture pair = read(name);
        EXPECT_EQ(pair.rows, single.rows) << name;
        EXPECT_EQ(pair.state.fields, 2U);
    }
    EXPECT_EQ(messages(), std::vector<int>{});
}

// --- Order of rows --------------------------------------------------------------------------

// Long sequences of requests, on two opens of the same file: one remembers where rows begin, the
// other is made to forget and so goes back to the header every time. Nobody may see the difference,
// damage or not, nor at scanlines that are not there. Where no failure stands before the row, a
// third, opened for this row alone, agrees.
TEST_F(ReadTest, AnyOrderGivesTheSameRows)
{
    make_damaged_images();
    std::minstd_rand random(1);
    for (int sequence = 0; sequence < 400; ++sequence) {
        const char *name = IMAGES[static_cast<size_t>(sequence) % std::size(IMAGES)];
        SCOPED_TRACE(std::string(name) + ", sequence " + std::to_string(sequence));
        with_image(name, [&](ImageHandle *handle) {
            with_image(name, [&](ImageHandle *forgetful) {
                const PixState &state = *handle->priv->state;
                PixState *other = forgetful->priv->state;
                for (PixPlane &plane : other->plane) {
                    plane.starts = nullptr;
                }
                free(std::exchange(other->table, nullptr));
                for (int request = 0; request < 12; ++request) {
                    const auto y = static_cast<int32_t>(random() % 7) - 1;
                    const bool apart =
                        state.place != PIX_AT_ROW && state.row <= static_cast<uint32_t>(4 - y);
                    const Answer answer = ask(handle, y);
                    ASSERT_EQ(ask(forgetful, y), answer) << "scanline " << y;
                    ASSERT_EQ(y < 0 || y > 4, answer == Answer({-2}, {53}));
                    ASSERT_EQ(other->row, state.row);
                    with_image(name, [&](ImageHandle *fresh) {
                        EXPECT_TRUE(apart || ask(fresh, y) == answer) << "scanline " << y;
                    });
                }
            });
        });
    }
}

// A row that cannot be decoded is read on from where that showed, and comes back as it was.
TEST_F(ReadTest, ReadingGoesOnBehindADamagedRow)
{
    make_damaged_images();
    with_image("long.pix", [&](ImageHandle *handle) {
        const Answer good = {{3, 3, 3, 2, 2, 2, 1, 1, 1, 0xAA, 0xAA, 0xAA, 1, 2, 3, 0}, {}};
        const Answer next = {{18, 21, 21, 17, 20, 20, 16, 19, 19, 0xAB, 0xAC, 0xAC, 4, 5, 6, 0},
                             {}};
        for (int time = 0; time < 2; ++time) {
            EXPECT_EQ(ask(handle, 4), good);
            EXPECT_EQ(ask(handle, 3), Answer({-18}, {59, 55}));
            EXPECT_EQ(ask(handle, 3), next);
        }
    });
}

// Rows of a large file lie across the edges of the stream's buffers, at every place within a
// packet.
TEST_F(ReadTest, RowsAcrossTheEdgesOfBuffers)
{
    constexpr int32_t width = 1001;
    constexpr int32_t height = 1100;
    std::minstd_rand random(1);
    const auto color_of = [](int32_t y, int32_t x) { return static_cast<uint8_t>(y * 7 + x * x); };
    ImageHandle *writing = writer("large.pix", width, height, 3, 1);
    ASSERT_EQ(module.write_open(writing), 1);
    std::vector<uint8_t> row(width);
    void *buffers[] = {row.data(), row.data(), row.data(), row.data()};
    for (int32_t y = height - 1; y >= 0; --y) {
        for (int32_t x = 0; x < width; ++x) {
            row[static_cast<size_t>(x)] = color_of(y, x);
        }
        ASSERT_EQ(writing->scanline_proc(writing->priv->state, y, buffers), 0);
    }
    ASSERT_EQ(writing->close_proc(writing), 0);
    with_image("large.pix", [&](ImageHandle *handle) {
        for (int32_t request = 0; request < 3 * height; ++request) {
            const int32_t scattered = static_cast<int32_t>(random() % height);
            const int32_t orders[] = {height - 1 - request, request - height, scattered};
            const int32_t y = orders[request / height];
            void **rows = nullptr;
            ASSERT_EQ(handle->scanline_proc(handle->priv->state, y, &rows), 0);
            for (int32_t x = 0; x < width; ++x) {
                ASSERT_EQ(static_cast<uint8_t *>(rows[request % 4])[x], color_of(y, x)) << y;
            }
        }
    });
}

// What others do with standard input between two rows is undone by going back.
TEST_F(ReadTest, StandardInputThatOthersMove)
{
    make_image("a.pix");
    FILE *const kept = stdin;
    for (const char *file : {"r/a.pix", "mask/a.pix"}) {
        SCOPED_TRACE(file);
        stdin = fopen(path(file).c_str(), "r");
        ImageHandle *handle = standin_new_reader("/dev/stdin");
        ASSERT_EQ(module.read_open(handle), 1);
        std::vector<Answer> rows;
        for (int32_t y = 0; y < 5; ++y) {
            rows.push_back(ask(handle, y));
            EXPECT_EQ(rows.back().first.back(), 0);
        }
        for (const int32_t y : {3, 2, 1, 0}) {
            EXPECT_TRUE(module.is_file("/dev/stdin", stdin)); // reads its header
            EXPECT_EQ(ask(handle, 4), rows[4]);
            (void)fseek(stdin, 20, SEEK_SET);
            (void)ask(handle, y);
            EXPECT_EQ(ask(handle, 4), rows[4]);
            EXPECT_EQ(ask(handle, y), rows[static_cast<size_t>(y)]);
        }
        EXPECT_EQ(handle->close_proc(handle), 0);
        (void)fclose(stdin);
    }
    stdin = kept;
}

// After a seek that failed the files may stand at different rows: colour has been brought back
// here, a matte that comes through a pipe has not. No request may give a row of two.
TEST_F(ReadTest, AMatteThatCannotSeekLosesTheImage)
{
    make_image("a.pix");
    const Bytes matte = contents("mask/a.pix");
    fs::remove(path("mask/a.pix"));
    ASSERT_EQ(mkfifo(path("mask/a.pix").c_str(), 0666), 0);
    const int pipe = open(path("mask/a.pix").c_str(), O_RDWR);
    ASSERT_EQ(write(pipe, matte.data(), matte.size()), static_cast<ssize_t>(matte.size()));
    with_image("a.pix", [&](ImageHandle *handle) {
        EXPECT_EQ(ask(handle, 4).first.back(), 0);
        for (const int32_t y : {4, 3, 3, 0}) {
            EXPECT_EQ(ask(handle, y), Answer({-18}, {55})) << "scanline " << y;
        }
        EXPECT_EQ(handle->priv->state->row, 1U);
    });
    close(pipe);
}

// --- The search -----------------------------------------------------------------------------

// Images of 1 by 1 pixel, the directory "r" as the current one, and a list of "r/none", "r/one" and
// "r/two". An attempt asks vyn__build_handle for its own name, and, when that is there, for the two
// others of the single file and of the fields. No directory holds the base name b.pix itself.
TEST_F(ReadTest, TheSearchTriesOnePlaceAfterTheOther)
{
    struct Case {
        std::string files, name;
        const char *found = nullptr; // null: the open fails
        long calls;                  // of vyn__build_handle
        long fails = 0;              // that one of them
    };
    const std::string pairs = "a.e a.o two/a.e two/a.o";
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
        {.files = "a one/a", .name = "a", .found = "one/a", .calls = 5, .fails = 2},
        {.files = "a one/a", .name = "a", .found = "one/a", .calls = 6, .fails = 3},
        {.files = pairs, .name = "a.e", .found = "none/a", .calls = 4, .fails = 1},
        {.files = pairs, .name = "a.e", .found = "none/a", .calls = 5, .fails = 2},
        {.files = pairs, .name = "a.e", .calls = 3, .fails = 3},
    };
    setenv("KV_IMG_DIR", (path("r/none") + ":" + path("r/one") + ":" + path("r/two")).c_str(), 1);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.files + ", without path " + std::to_string(c.fails));
        clear();
        fs::current_path(path("r"));
        std::istringstream files(c.files);
        for (std::string file; files >> file;) {
            make("r/" + file, colour_header(1, 1));
        }
        make("r/mask/a", colour_header(1, 1, 8)); // of "one/a"
        ImageHandle *handle = standin_new_reader(c.name.c_str());
        handle->name_is_exact = 0;
        standin_reset_faults();
        standin_fail(STANDIN_BUILD_HANDLE, c.fails, false);
        vyn__err = 0;
        ASSERT_EQ(module.read_open(handle), c.found ? 1 : 0);
        EXPECT_EQ(standin_calls(STANDIN_BUILD_HANDLE), c.calls);
        EXPECT_EQ(messages(), c.found ? std::vector<int>() : std::vector<int>{52});
        EXPECT_EQ(c.found ? image_disagrees(handle) : failed_open_holds(handle), "");
        if (c.found) {
            const std::string found = c.found;
            const PixState &state = *handle->priv->state;
            EXPECT_EQ(state.plane[PIX_COLOUR].name, (found == "a" ? "" : path("r/")) + found);
            EXPECT_EQ(state.plane[PIX_MATTE].present, found == "one/a");
        }
        EXPECT_EQ(handle->close_proc(handle), 0);
        messages();
        fs::current_path("/");
    }
    unsetenv("KV_IMG_DIR");
}
