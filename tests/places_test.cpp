// Names of every length, labels of every sort, and places where files do not fit.
#include "tests/support.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <numeric>

namespace fs = std::filesystem;

namespace {

class PlacesTest : public ModuleTest {
  protected:
    // Writes an image of one row with both companions and reads it. Returns the messages of both.
    std::vector<int> round_trip(const std::string &name, bool exact)
    {
        uint8_t byte = 7;
        int32_t depth = 9;
        void *rows[] = {&byte, &byte, &byte, &depth, &depth}; // wherever it is wanted
        ImageHandle *handle = standin_new_writer(name.c_str(), 1, 1, 3, 1, 1);
        handle->name_is_exact = exact ? 1 : 0;
        wrote = module.write_open(handle);
        const int32_t companions = wrote ? handle->info->matte_count + handle->info->aux_count : 0;
        EXPECT_TRUE(!wrote || handle->scanline_proc(handle->priv->state, 0, rows) == 0);
        EXPECT_EQ(handle->close_proc(handle), 0);
        handle = standin_new_reader(name.c_str());
        handle->name_is_exact = exact ? 1 : 0;
        EXPECT_EQ(module.read_open(handle), wrote);
        if (wrote) {
            EXPECT_EQ(handle->info->matte_count + handle->info->aux_count, companions);
            void **read = nullptr;
            EXPECT_EQ(handle->scanline_proc(handle->priv->state, 0, &read), 0);
            EXPECT_TRUE(read && *static_cast<uint8_t *>(read[2]) == 7);
        }
        EXPECT_EQ(handle->close_proc(handle), 0);
        return messages();
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
};

} // namespace

TEST_F(PlacesTest, Lengths)
{
    for (size_t length = 1000; length <= 5000; length += length < 1100 ? 1 : 3900) {
        const std::string name = long_path(length);
        // The companions lie a directory higher: "depth" or "mask" for one of 99 letters.
        const bool fits = length < 1024;
        for (const bool exact : {true, false}) {
            SCOPED_TRACE(length);
            EXPECT_EQ(round_trip(name, exact),
                      fits ? std::vector<int>() : std::vector<int>({52, 52}));
            EXPECT_EQ(wrote, fits);
            EXPECT_TRUE(fits ||
                        texts.back() == "Cannot open file " + name + "; " + strerror(ENAMETOOLONG));
        }
        fs::remove_all(path("r"));
    }
}

// The paths of the fields do not fit, but nobody opens them: they are no reason for what fails
// later.
TEST_F(PlacesTest, APathThatIsNotOpenedIsNoReason)
{
    const fs::path file = fs::relative(long_path(1022), directory);
    make(file, colour_header(1, 1));
    const fs::path above = file.parent_path().parent_path();
    make(above / "mask" / file.filename(), {}); // a header cut short, without an error of its own
    make(above / "depth" / file.filename(), depth_header(1, 1));
    setenv("KV_IMG_DIR", directory.c_str(), 1);
    ImageHandle *handle = standin_new_reader(file.c_str());
    handle->name_is_exact = 0;
    EXPECT_EQ(module.read_open(handle), 0);
    unsetenv("KV_IMG_DIR");
    EXPECT_EQ(messages(), std::vector<int>{25});
    EXPECT_NE(texts.back().find(strerror(ENOENT)), std::string::npos) << texts.back();
    EXPECT_EQ(handle->close_proc(handle), 0);
}

TEST_F(PlacesTest, LabelsOfACatalogue)
{
    struct Case {
        std::string matte, depth;
        std::vector<int> messages;
    };
    const Case cases[] = {
        {"100%s%n", "%%d", {}},
        {"r/../deep", "r//z", {}},
        {"none/below", "/none/at/all", {42, 258}},
        {std::string(255, 'm'), std::string(256, 'z'), {258}},
        {std::string(1100, 'm'), std::string(2000, '%'), {42, 258}},
    };
    for (const Case &c : cases) {
        const std::string source = path("words");
        std::ofstream(source) << "$set 901\n343 " << c.depth << "\n344 " << c.matte << "\n";
        fs::remove(path("catalogue"));
        ASSERT_EQ(system(("gencat " + path("catalogue") + " " + source).c_str()), 0);
        vyn__msg_cat = catopen(path("catalogue").c_str(), 0);
        EXPECT_EQ(round_trip(path("r/a%d"), true), c.messages) << c.matte;
        catclose(vyn__msg_cat);
        vyn__msg_cat = nullptr;
        EXPECT_TRUE(c.matte[0] != '1' || fs::exists(path("100%s%n/a%d")));
    }
    EXPECT_NE(std::find(texts.begin(), texts.end(),
                        "Cannot open mask file " + path("r/a%d") +
                            "; No such file or directory (vorla images need a special directory "
                            "for mask files)"),
              texts.end());
}

TEST_F(PlacesTest, CompanionsThatAreNoFiles)
{
    for (const char *target : {"/dev/full", ".", "/none/at/all"}) {
        fs::create_directory(path("mask"));
        fs::create_symlink(target, path("mask/a"));
        ImageHandle *handle = writer("a", 1, 1, 3, 1);
        EXPECT_EQ(module.write_open(handle), 1);
        const bool device = target[1] == 'd';
        EXPECT_EQ(messages(), device ? std::vector<int>() : std::vector<int>{42});
        EXPECT_EQ(handle->close_proc(handle), device ? -20 : 0);
        EXPECT_TRUE(fs::is_symlink(path("mask/a")));
        EXPECT_EQ(messages(), device ? std::vector<int>{56} : std::vector<int>());
        EXPECT_TRUE(!device || texts.back() == "Cannot write to " + path("mask/a") +
                                                   "; No space left on device");
        const Picture picture = read("a"); // its row is missing; nor has /dev/full a header
        EXPECT_EQ(picture.result, target[0] == '.' || device ? 0 : 1);
        EXPECT_EQ(messages(), std::vector<int>{picture.result ? 55 : 25});
        EXPECT_TRUE(target[0] != '.' ||
                    texts.back() == "Cannot open mask file `" + path("mask/a") +
                                        "'; Is a directory (header is corrupt)");
        fs::remove_all(path("mask"));
    }
}

TEST_F(PlacesTest, NoDescriptors)
{
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(round_trip(path("r/a"), true), std::vector<int>());
    const std::vector<int> expected[][2] = {{{52}, {52}}, {{42, 258}, {}}, {{258}, {}}, {{}, {}}};
    for (rlim_t left = 0; left < 4; ++left) {
        for (const bool write : {true, false}) {
            SCOPED_TRACE(left);
            ImageHandle *handle =
                write ? writer("a", 1, 1, 3, 1, 1) : standin_new_reader(path("r/a").c_str());
            const int next = dup(0);
            close(next);
            const rlimit low = {static_cast<rlim_t>(next) + left, limit.rlim_max};
            setrlimit(RLIMIT_NOFILE, &low);
            EXPECT_EQ(write ? module.write_open(handle) : module.read_open(handle), left > 0);
            setrlimit(RLIMIT_NOFILE, &limit);
            EXPECT_EQ(messages(), expected[left][write ? 0 : 1]);
            // A read goes on to field files that do not exist; some systems say that first.
            EXPECT_TRUE(left == 3 || !write ||
                        texts.back().find(strerror(EMFILE)) != std::string::npos);
            EXPECT_EQ(handle->close_proc(handle), 0);
        }
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
        EXPECT_TRUE(closed || texts.back().find(strerror(EFBIG)) != std::string::npos);
        EXPECT_LE(fs::file_size(path("r/a")), most);
    }
    signal(SIGXFSZ, SIG_DFL);
}
