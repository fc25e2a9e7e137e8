// The field rule and the companion rule.
#include "fileset/names.h"
#include "host/messages.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <stdlib.h>
#include <unistd.h>

TEST(Names, OfFieldsAreToldFromTheImagesName)
{
    struct Case {
        const char *suffix; // field names are the base, this and "e" or "o"
        size_t cut;         // that many bytes behind the base make the name a field's
        std::vector<std::string> names;
    };
    const Case cases[] = {
        {".",
         0,
         {"shot.pix", "shot.pixe", "shot.e7", "shot", "shot.E", "shot.", "dir/5", "r.7/e",
          "r.7/12e", "5e", "e", "7"}},
        {".", 2, {"shot.pix.e", "shot.pix.o", "x.5.e", ".e"}},
        {"", 0, {"shot.0001", "r/shot.12", ".7"}},
        {"", 1, {"shot.0001e", "shot.0001o", "a.12o", ".5e"}},
    };
    for (const Case &c : cases) {
        for (const std::string &name : c.names) {
            const std::string base = name.substr(0, name.size() - c.cut);
            PixNames names;
            pix_field_names(name.c_str(), 'r', &names);
            EXPECT_EQ(names.base, base) << name;
            EXPECT_EQ(names.even, base + c.suffix + "e") << name;
            EXPECT_EQ(names.odd, base + c.suffix + "o") << name;
            EXPECT_EQ(names.is_field, c.cut > 0) << name;
            pix_field_names(name.c_str(), 'w', &names);
            EXPECT_EQ(names.base, name);
            EXPECT_FALSE(names.is_field) << name;
        }
    }
}

TEST(Names, OfCompanionsLieBesideTheImagesDirectory)
{
    // Directories of an image and, in the same places, those in which its companions' lie.
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
