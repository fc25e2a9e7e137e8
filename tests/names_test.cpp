// The field rule and the companion rule.
#include "fileset/names.h"
#include "host/messages.h"

#include <gtest/gtest.h>

#include <string>

#include <stdlib.h>
#include <unistd.h>

TEST(Names, FieldRule)
{
    // clang-format off
    // Field names are `base` + `suffix` + "e" or "o".
    struct Case { const char *name, *base, *suffix; bool is_field; };
    const Case cases[] = {
        {"shot.pix", "shot.pix", ".", false}, {"shot.pix.e", "shot.pix", ".", true},
        {"shot.pix.o", "shot.pix", ".", true}, {"shot.0001", "shot.0001", "", false},
        {"shot.0001e", "shot.0001", "", true}, {"shot.0001o", "shot.0001", "", true},
        {"r/shot.12", "r/shot.12", "", false}, {"shot.pixe", "shot.pixe", ".", false},
        {"shot.e7", "shot.e7", ".", false}, {"shot", "shot", ".", false},
        {"shot.E", "shot.E", ".", false}, {"a.12o", "a.12", "", true}, {"x.5.e", "x.5", ".", true},
        {"dir/5", "dir/5", ".", false}, {"r.7/e", "r.7/e", ".", false}, {"5e", "5e", ".", false},
        {"e", "e", ".", false}, {"7", "7", ".", false}, {"shot.", "shot.", ".", false},
        {".5e", ".5", "", true}, {".e", "", ".", true}, {".7", ".7", "", false},
        {"r.7/12e", "r.7/12e", ".", false},
    };
    // clang-format on
    for (const Case &c : cases) {
        PixNames names;
        pix_field_names(c.name, 'r', &names);
        EXPECT_STREQ(names.base, c.base) << c.name;
        EXPECT_EQ(names.even, std::string(c.base) + c.suffix + "e") << c.name;
        EXPECT_EQ(names.odd, std::string(c.base) + c.suffix + "o") << c.name;
        EXPECT_EQ(names.is_field, c.is_field) << c.name;
        pix_field_names(c.name, 'w', &names);
        EXPECT_STREQ(names.base, c.name);
        EXPECT_FALSE(names.is_field);
    }
}

TEST(Names, CompanionRule)
{
    // clang-format off
    struct Case { const char *path, *matte, *depth; };
    const Case cases[] = {
        {"shot.pix", "../mask/shot.pix", "../depth/shot.pix"},
        {"renders/shot.pix", "mask/shot.pix", "depth/shot.pix"},
        {"/shot.pix", "/mask/shot.pix", "/depth/shot.pix"},
        {"/a/shot.pix", "/mask/shot.pix", "/depth/shot.pix"},
        {"/jobs/a/renders/shot.pix", "/jobs/a/mask/shot.pix", "/jobs/a/depth/shot.pix"},
        {"a/b/shot.pix", "a/mask/shot.pix", "a/depth/shot.pix"},
        {"a//shot.pix", "a/mask/shot.pix", "a/depth/shot.pix"},
        {"renders/shot.0001e", "mask/shot.0001e", "depth/shot.0001e"},
        {"", "../mask/", "../depth/"},
        {"/dev/stdin", nullptr, nullptr},
        {"/dev/stdout", nullptr, nullptr},
    };
    // clang-format on
    for (const Case &c : cases) {
        EXPECT_STREQ(pix_companion_path(c.path, "r", PIX_COMPANION_MATTE), c.matte) << c.path;
        EXPECT_STREQ(pix_companion_path(c.path, "r", PIX_COMPANION_DEPTH), c.depth) << c.path;
    }
    EXPECT_DEATH((void)pix_companion_path("shot.pix", "r", 2), "");
}

TEST(Names, CompanionDirectoryIsMadeOnlyForAPathThatFits)
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
