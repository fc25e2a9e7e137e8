// Names of every length, labels of every sort, and places where files do not fit.
#include "tests/support.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <filesystem>

namespace fs = std::filesystem;

class PlacesTest : public ModuleTest {
  protected:
    // A path of `length` bytes with the directories that it needs.
    std::string long_path(size_t length) const
    {
        std::string name = path("r");
        while (name.size() + 102 < length) {
            name += "/" + std::string(99, 'd');
        }
        if (length < PATH_MAX) {
            fs::create_directories(name);
        }
        return name + "/" + std::string(length - name.size() - 1, 'x');
    }
};

// Way 0 uses the whole path exactly as it is. Way 1 uses the whole path as a name that may be
// searched for. Way 2 uses only the last part of the path, which the search list finds. A field
// name of 1,024 bytes or more is not used, even when there is a file of that name, or a file whose
// name is that name cut off.
TEST_F(PlacesTest, PathsOfEveryLengthAreUsedWholeOrRefused)
{
    using Texts = std::vector<std::string>;
    for (size_t length = 1000; length <= 5000; length += length < 1100 ? 1 : 3900) {
        const std::string whole = long_path(length);
        const std::string file = fs::path(whole).filename();
        setenv("KV_IMG_DIR", fs::path(whole).parent_path().c_str(), 1);
        const bool fits = length < 1024;
        for (const int way : {0, 1, 2}) {
            SCOPED_TRACE(std::to_string(length) + ", way " + std::to_string(way));
            const std::string &name = way == 2 ? file : whole;
            const auto opened = [&](const std::string &image) {
                ImageHandle *handle = standin_new_reader(image.c_str());
                handle->name_is_exact = way == 0;
                return open_image(handle);
            };
            const Texts refusal = {"Cannot open file " + name + "; " + strerror(ENAMETOOLONG)};
            ImageHandle *handle = standin_new_writer(name.c_str(), 1, 1, 3, 1, 1);
            handle->name_is_exact = way == 0;
            const auto rows = write_image(handle);
            EXPECT_EQ(result, fits);
            EXPECT_EQ(texts, fits ? Texts() : refusal);
            handle = opened(name);
            EXPECT_EQ(texts, fits ? Texts() : refusal);
            EXPECT_EQ(fits ? all_rows(handle) : rows, rows);
            close_image(handle);
            if (fits) {
                fs::copy(whole, whole + ".e");
                // The even file is there and the odd one is not. Where the field names are too
                // long there is no pair, and the single file opens.
                if (way == 2) {
                    close_image(opened(file + ".o"));
                    EXPECT_EQ(result, length >= 1022);
                }
                fs::copy(whole, whole + ".o");
                fs::rename(whole, whole + ".");
                close_image(opened(name));
                EXPECT_EQ(texts, length < 1022 ? Texts() : refusal);
                for (const char *end : {".", ".e", ".o"}) {
                    fs::remove(whole + end);
                }
            }
        }
        fs::remove_all(path("r"));
    }
    errno = 0;
    close_image(open_image(standin_new_reader("")));
    EXPECT_EQ(texts, Texts{"Cannot open file ; Success"});
    unsetenv("KV_IMG_DIR");
}

// The test's catalogue has the number of each label as its text, so that a label shows from which
// place of the catalogue it came.
TEST_F(PlacesTest, LabelsAreThoseOfTheCatalogueOrElseTheDefaults)
{
    struct Case {
        std::string matte, depth;
        std::vector<int> told = {};
        std::string labels = "254 100 210 32 145 141 149 129 147 137 4 133 ";
    };
    const Case cases[] = {
        {.matte = "mask",
         .depth = "depth",
         .labels = "Vorla .pix Name.# unknown unknown unknown unknown unknown unknown unknown run "
                   "length encoded unknown "},
        {.matte = "100%s%n", .depth = "%%d"},
        {.matte = "none/below", .depth = "/none/at/all", .told = {42, 258}},
        {.matte = std::string(1100, 'm'), .depth = std::string(2000, '%'), .told = {42, 258}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.matte);
        c.labels[0] == 'V' ? void() : translate(c.depth, c.matte);
        standin_unload(&module);
        ASSERT_EQ(standin_load(module_path, &module), nullptr);
        const std::vector<Samples> rows = write_image(writer("a%d", 1, 1, 3, 1, 1));
        EXPECT_EQ(told, c.told);
        std::error_code is_long;
        EXPECT_EQ(fs::exists(path(c.matte + "/a%d"), is_long), c.told.empty());
        std::string labels;
        for (const char *name : {"imageName", "imageExtension", "imageNameSyntax"}) {
            labels += standin_text(&module, name) + std::string(" ");
        }
        ImageHandle *handle = open_image(reader("a%d"));
        EXPECT_EQ(all_rows(handle), rows);
        for (const char *text : handle->description) {
            labels += std::string(text) + " ";
        }
        EXPECT_EQ(labels + handle->compression + " " + handle->info->format_label + " ", c.labels);
        close_image(handle);
        vyn__msg_cat ? catclose(vyn__msg_cat) : 0;
        vyn__msg_cat = nullptr;
    }
}
