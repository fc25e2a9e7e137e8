// Names of every length, labels of every sort, and places where files do not fit.
#include "tests/support.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <numeric>

namespace fs = std::filesystem;

namespace {

class PlacesTest : public ModuleTest {
  protected:
    // Opens `name` for reading and closes it. Returns the result.
    int32_t open_again(const std::string &name, bool exact)
    {
        ImageHandle *handle = standin_new_reader(name.c_str());
        handle->name_is_exact = exact ? 1 : 0;
        vyn__err = 0;
        const int32_t result = module.read_open(handle);
        told = messages();
        if (result == 1) {
            void **rows = nullptr;
            EXPECT_EQ(image_disagrees(handle), "");
            EXPECT_EQ(handle->scanline_proc(handle->priv->state, 0, &rows), 0);
            back = rows ? samples(*handle->priv->state, rows) : std::vector<int32_t>();
            for (const char *text : handle->description) {
                labels += std::string(text) + " ";
            }
            labels += std::string(handle->compression) + " " + handle->info->format_label;
        } else {
            EXPECT_EQ(failed_open_holds(handle), "");
            messages();
        }
        const CloseProc close_proc = handle->close_proc;
        EXPECT_EQ(close_proc(handle), 0);
        EXPECT_EQ(vyn__err, 0);
        vyn__err = -1;
        EXPECT_EQ(close_proc(nullptr), 0);
        EXPECT_EQ(vyn__err, -1);
        return result;
    }

    // Writes an image of one row with both companions and reads it. Leaves the messages of both.
    void round_trip(const std::string &name, bool exact)
    {
        uint8_t byte = 7;
        int32_t depth = 9;
        void *rows[] = {&byte, &byte, &byte, &depth, &depth}; // wherever it is wanted
        ImageHandle *handle = standin_new_writer(name.c_str(), 1, 1, 3, 1, 1);
        handle->name_is_exact = exact ? 1 : 0;
        wrote = module.write_open(handle);
        std::vector<int32_t> written;
        if (wrote) {
            EXPECT_EQ(handle->scanline_proc(handle->priv->state, 0, rows), 0);
            written = samples(*handle->priv->state, rows);
        }
        EXPECT_EQ(handle->close_proc(handle), 0);
        const std::vector<int> first = messages();
        back.clear();
        labels.clear();
        EXPECT_EQ(open_again(name, exact), wrote);
        EXPECT_EQ(back, written);
        told.insert(told.begin(), first.begin(), first.end());
    }

    // A path of `length` bytes with the directories that it needs.
    std::string long_path(size_t length) const
    {
        std::string name = path("r");
        while (name.size() + 202 < length) {
            name += "/" + std::string(99, 'd');
        }
        if (length < PATH_MAX) {
            fs::create_directories(name);
        }
        return name + "/" + std::string(length - name.size() - 1, 'x');
    }

    int32_t wrote = 0;
    std::vector<int> told;
    std::vector<int32_t> back; // the row that was read
    std::string labels;        // of the image that was read
};

} // namespace

// A name as it is, one that could be searched for, and one that is found under the search list. A
// field's name that does not fit is none, also where a file of it or of its first bytes is there.
TEST_F(PlacesTest, PathsOfEveryLength)
{
    for (size_t length = 1000; length <= 5000; length += length < 1100 ? 1 : 3900) {
        const std::string whole = long_path(length);
        const std::string file = fs::path(whole).filename();
        setenv("KV_IMG_DIR", fs::path(whole).parent_path().c_str(), 1);
        // The companions lie a directory higher: "depth" or "mask" for one of 99 letters.
        const bool fits = length < 1024;
        for (const int way : {0, 1, 2}) {
            SCOPED_TRACE(std::to_string(length) + ", way " + std::to_string(way));
            const std::string &name = way == 2 ? file : whole;
            round_trip(name, way == 0);
            EXPECT_EQ(wrote, fits);
            EXPECT_EQ(told, fits ? std::vector<int>() : std::vector<int>({52, 52}));
            if (!fits) {
                EXPECT_EQ(texts[0], "Cannot open file " + name + "; " + strerror(ENAMETOOLONG));
                EXPECT_EQ(texts[1], texts[0]);
            }
            texts.clear();
            if (fits) {
                fs::copy(whole, whole + ".e");
                if (way == 2) { // a pair without its odd file; or one that is none, and the single
                    EXPECT_EQ(open_again(file + ".o", false), length >= 1022);
                }
                fs::copy(whole, whole + ".o");
                fs::rename(whole, whole + ".");
                EXPECT_EQ(open_again(name, way == 0), length < 1022);
                for (const char *end : {".", ".e", ".o"}) {
                    fs::remove(whole + end);
                }
                texts.clear();
            }
        }
        fs::remove_all(path("r"));
    }
    errno = 0;
    EXPECT_EQ(open_again("", true), 0);
    EXPECT_EQ(texts[0], "Cannot open file ; Success");
    unsetenv("KV_IMG_DIR");
}

// The paths of the fields do not fit, but nobody opens them: they are no reason for what fails
// later.
TEST_F(PlacesTest, APathThatIsNotOpenedIsNoReason)
{
    const fs::path file = fs::relative(long_path(1022), directory);
    make(file, colour_header(1, 1));
    const fs::path above = file.parent_path().parent_path();
    make(above / "mask" / file.filename(), {}); // a header cut short, without an error of its own
    setenv("KV_IMG_DIR", directory.c_str(), 1);
    EXPECT_EQ(open_again(file, false), 0);
    unsetenv("KV_IMG_DIR");
    EXPECT_EQ(told, std::vector<int>{25});
    EXPECT_NE(texts[0].find(strerror(ENOENT)), std::string::npos) << texts[0];
}

// Every label comes from its place in the catalogue, which the words tell.
TEST_F(PlacesTest, LabelsOfACatalogue)
{
    struct Case {
        std::string matte, depth;
        std::vector<int> told = {};
    };
    const Case cases[] = {
        {.matte = "100%s%n", .depth = "%%d"},
        {.matte = "r/../deep", .depth = "r//z"},
        {.matte = "none/below", .depth = "/none/at/all", .told = {42, 258}},
        {.matte = std::string(255, 'm'), .depth = std::string(256, 'z'), .told = {258}},
        {.matte = std::string(1100, 'm'), .depth = std::string(2000, '%'), .told = {42, 258}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.matte);
        std::ofstream words(path("words"));
        words << "$set 901\n";
        for (int number = 1; number < 343; ++number) {
            words << number << " " << number << "\n";
        }
        words << "343 " << c.depth << "\n344 " << c.matte << std::endl;
        fs::remove(path("catalogue"));
        const std::string command = "gencat " + path("catalogue") + " " + path("words");
        ASSERT_EQ(system(command.c_str()), 0);
        vyn__msg_cat = catopen(path("catalogue").c_str(), 0);
        texts.clear();
        round_trip(path("r/a%d"), true);
        EXPECT_EQ(told, c.told);
        EXPECT_EQ(labels, "32 145 141 149 129 147 137 4 133");
        if (c.matte == "none/below") {
            EXPECT_EQ(texts[0], "Cannot open mask file " + path("r/a%d") +
                                    "; No such file or directory (vorla images need a special "
                                    "directory for mask files)");
        }
        std::error_code is_long;
        EXPECT_EQ(fs::exists(path(c.matte + "/a%d"), is_long), c.told.empty() || c.told[0] == 258);
        standin_unload(&module);
        ASSERT_EQ(standin_load(module_path, &module), nullptr);
        EXPECT_STREQ(standin_text(&module, "imageName"), "254");
        EXPECT_STREQ(standin_text(&module, "imageExtension"), "100");
        EXPECT_STREQ(standin_text(&module, "imageNameSyntax"), "210");
        catclose(vyn__msg_cat);
        vyn__msg_cat = nullptr;
    }
}

// The row of a companion that is missing cannot be read; nor has /dev/full a header.
TEST_F(PlacesTest, CompanionsThatAreNoFiles)
{
    struct Case {
        const char *target;
        std::vector<int> opening = {}, closing = {};
        int32_t closed = 0, read = 0;
        std::vector<int> reading;
        std::string text; // of one of them
    };
    const std::string name = path("mask/a");
    const Case cases[] = {
        {.target = "/dev/full",
         .closing = {56},
         .closed = -20,
         .reading = {25},
         .text = "Cannot write to " + name + "; No space left on device"},
        {.target = ".",
         .opening = {42},
         .reading = {25},
         .text = "Cannot open mask file `" + name + "'; Is a directory (header is corrupt)"},
        {.target = "/none/at/all",
         .opening = {42},
         .read = 1,
         .reading = {55},
         .text = "Cannot read scanline 0; No such file or directory"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.target);
        fs::create_directory(path("mask"));
        fs::create_symlink(c.target, name);
        ImageHandle *handle = writer("a", 1, 1, 3, 1);
        EXPECT_EQ(module.write_open(handle), 1);
        EXPECT_EQ(messages(), c.opening);
        EXPECT_EQ(handle->close_proc(handle), c.closed);
        EXPECT_TRUE(fs::is_symlink(name));
        EXPECT_EQ(messages(), c.closing);
        EXPECT_EQ(read("a").result, c.read);
        EXPECT_EQ(messages(), c.reading);
        EXPECT_EQ(std::count(texts.begin(), texts.end(), c.text), 1) << c.text;
        texts.clear();
        fs::remove_all(path("mask"));
    }
}

TEST_F(PlacesTest, AFileThatMayGrowNoFurther)
{
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    const int32_t width = 20000; // of single pixels: 80000 bytes a row
    Bytes noise(static_cast<size_t>(width));
    std::iota(noise.begin(), noise.end(), uint8_t{0});
    void *rows[] = {noise.data(), noise.data(), noise.data()};
    for (const rlim_t most : {0U, 9U, 65536U, 65537U, 100000U, 160009U, 160010U}) {
        SCOPED_TRACE(most);
        ImageHandle *handle = writer("a", width, 2, 3);
        const rlimit low = {most, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &low);
        EXPECT_EQ(module.write_open(handle), 1);
        const auto row = [&](int32_t y) {
            return handle->scanline_proc(handle->priv->state, y, rows);
        };
        const bool first = row(1) == 0;
        const bool second = first && row(0) == 0;
        const bool closed = handle->close_proc(handle) == 0;
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_EQ(first, most >= 65536);
        EXPECT_EQ(first && second && closed, most == 160010);
        EXPECT_EQ(messages().empty(), most == 160010);
        if (!closed) {
            EXPECT_NE(texts.back().find(strerror(EFBIG)), std::string::npos) << texts.back();
        }
        EXPECT_LE(fs::file_size(path("r/a")), most);
    }
    signal(SIGXFSZ, SIG_DFL);
}
