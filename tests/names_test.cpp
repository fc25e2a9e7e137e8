// The field rule and the companion rule.
#include "fileset/names.h"
#include "host/messages.h"

#include <gtest/gtest.h>

#include <string>

#include <stdlib.h>
#include <unistd.h>

TEST(Names, OfFieldsAreToldFromTheImagesName)
{
    struct Case {
        const char *name;
        std::string base;
        const char *suffix = "."; // field names are `base` + `suffix` + "e" or "o"
    };
    const Case cases[] = {
        {"shot.pix", "shot.pix"},
        {"shot.pix.e", "shot.pix"},
        {"shot.pix.o", "shot.pix"},
        {"shot.pixe", "shot.pixe"},
        {"shot.e7", "shot.e7"},
        {"shot", "shot"},
        {"shot.E", "shot.E"},
        {"x.5.e", "x.5"},
        {"dir/5", "dir/5"},
        {"r.7/e", "r.7/e"},
        {"r.7/12e", "r.7/12e"},
        {"5e", "5e"},
        {"e", "e"},
        {"7", "7"},
        {"shot.", "shot."},
        {".e", ""},
        {".7", ".7", ""},
        {".5e", ".5", ""},
        {"r/shot.12", "r/shot.12", ""},
        {"shot.0001e", "shot.0001", ""},
        {"a.12o", "a.12", ""},
    };
    for (const Case &c : cases) {
        PixNames names;
        pix_field_names(c.name, 'r', &names);
        EXPECT_EQ(names.base, c.base) << c.name;
        EXPECT_EQ(names.even, c.base + c.suffix + "e") << c.name;
        EXPECT_EQ(names.odd, c.base + c.suffix + "o") << c.name;
        EXPECT_EQ(names.is_field, c.name != c.base) << c.name;
        pix_field_names(c.name, 'w', &names);
        EXPECT_STREQ(names.base, c.name);
        EXPECT_FALSE(names.is_field) << c.name;
    }
}

TEST(Names, OfCompanionsLieBesideTheImagesDirectory)
{
    const std::pair<const char *, const char *> parents[] = {
        // of a path and of its companions
        {"", "../"},    {"renders/", ""},           {"/", "/"},    {"/a/", "/"},
        {"a/b/", "a/"}, {"/jobs/a/b/", "/jobs/a/"}, {"a//", "a/"},
    };
    for (const auto &[path, parent] : parents) {
        for (const std::string file : {"shot.pix", "shot.1e", ""}) {
            const std::string name = path + file;
            EXPECT_EQ(pix_companion_path(name.c_str(), "r", PIX_COMPANION_MATTE),
                      parent + ("mask/" + file));
            EXPECT_EQ(pix_companion_path(name.c_str(), "r", PIX_COMPANION_DEPTH),
                      parent + ("depth/" + file));
        }
    }
    EXPECT_EQ(pix_companion_path("/dev/stdin", "r", PIX_COMPANION_MATTE), nullptr);
    EXPECT_EQ(pix_companion_path("/dev/stdout", "r", PIX_COMPANION_DEPTH), nullptr);
    EXPECT_DEATH((void)pix_companion_path("shot.pix", "r", 2), "");
}

TEST(Names, OfCompanionsHaveTheirDirectoryMadeIfTheyFit)
{
    std::string directory = testing::TempDir() + "vorla-names-XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    const std::string mask = directory + "/mask";
    const size_t room = PIX_NAME_SIZE - 1 - mask.size() - 1;
    const auto made = [&] { return access(mask.c_str(), F_OK) == 0; };

    const std::string longest = directory + "/r/" + std::string(room, 'x');
    EXPECT_EQ(pix_companion_path((longest + "x").c_str(), "w", PIX_COMPANION_MATTE), nullptr);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_NE(pix_companion_path(longest.c_str(), "r", PIX_COMPANION_MATTE), nullptr);
    EXPECT_FALSE(made());

    EXPECT_EQ(pix_companion_path(longest.c_str(), "w", PIX_COMPANION_MATTE),
              mask + "/" + std::string(room, 'x'));
    EXPECT_TRUE(made());

    EXPECT_EQ(pix_companion_path((directory + "/no/r/x").c_str(), "w", PIX_COMPANION_MATTE),
              nullptr);
    EXPECT_EQ(errno, ENOENT);
    rmdir(mask.c_str());
    rmdir(directory.c_str());
}
