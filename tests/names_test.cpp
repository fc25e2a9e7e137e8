// The names of the files that belong to an image.
#include "fileset/names.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(Names, FieldNamesAreMadeFromTheNameOfTheImage)
{
    struct Case {
        const char *name, *base, *suffix; // the fields are the base, the suffix and "e" or "o"
    };
    const Case cases[] = {
        {.name = "shot.pix", .base = "shot.pix", .suffix = "."},
        {.name = "r.7/12e", .base = "r.7/12e", .suffix = "."},
        {.name = "shot.pix.e", .base = "shot.pix", .suffix = "."},
        {.name = "shot.0001e", .base = "shot.0001", .suffix = ""},
    };
    for (const Case &c : cases) {
        PixNames names;
        pix_field_names(c.name, 'w', &names);
        EXPECT_EQ(std::string(names.base), c.name);
        EXPECT_FALSE(names.is_field) << c.name;
        pix_field_names(c.name, 'r', &names);
        EXPECT_EQ(std::string(names.base), c.base);
        EXPECT_EQ(names.even, std::string(c.base) + c.suffix + "e");
        EXPECT_EQ(names.odd, std::string(c.base) + c.suffix + "o");
        EXPECT_EQ(names.is_field, std::string(c.base) != c.name) << c.name;
    }
}

TEST(Names, CompanionsLieBesideTheDirectoryOfTheImage)
{
    // For each directory of an image in `paths`, `parents` has the place of "mask/" and "depth/".
    const std::string paths[] = {"", "renders/", "/", "/a/", "a/b/", "/jobs/a/b/", "a//"};
    const std::string parents[] = {"../", "", "/", "/", "a/", "/jobs/a/", "a/"};
    for (size_t i = 0; i < std::size(paths); ++i) {
        for (const char *file : {"shot.pix", "shot.1e", ""}) {
            const std::string path = paths[i] + file;
            EXPECT_EQ(pix_companion_path(path.c_str(), "r", PIX_COMPANION_MATTE),
                      parents[i] + "mask/" + file);
            EXPECT_EQ(pix_companion_path(path.c_str(), "r", PIX_COMPANION_DEPTH),
                      parents[i] + "depth/" + file);
        }
    }
    const std::string longest = "r/" + std::string(PIX_NAME_SIZE - 1 - strlen("mask/"), 'x');
    EXPECT_NE(pix_companion_path(longest.c_str(), "r", PIX_COMPANION_MATTE), nullptr);
    EXPECT_EQ(pix_companion_path((longest + "x").c_str(), "r", PIX_COMPANION_MATTE), nullptr);
    EXPECT_EQ(pix_companion_path("/dev/stdin", "r", PIX_COMPANION_MATTE), nullptr);
    EXPECT_EQ(pix_companion_path("/dev/stdout", "r", PIX_COMPANION_DEPTH), nullptr);
}
