// Which files the module takes for its own.
#include "tests/support.h"

using ProbeTest = ModuleTest;

TEST_F(ProbeTest, FirstTwelveBytes)
{
    // clang-format off
    // Sizes and bits of every value are tried in ExhaustTest.
    struct Case { const char *what; const char *bytes; const char *name; int is_pix; };
    const Case cases[] = {
        {"a colour file", "0080 0060 0000 005F 0018 0400", "a.pix", 1},
        {"a matte file", "0080 0060 0000 005F 0008 0400", "a.pix", 1},
        {"any name", "0080 0060 0000 005F 0018 0400", "a.rgb", 1},
        {"11 bytes", "0080 0060 0000 005F 0018 04", "a.pix", 0},
        {"an SGI image, 3 channels", "01DA 0101 0003 0280 0018 0003", "a.pix", 0},
        {"an SGI image by another name", "01DA 0101 0003 0280 0018 0003", "a", 0},
        {"474 square, y offset of the width", "01DA 01DA 0000 01D9 0018 0400", "a.rgb", 1},
        {"474 wide", "01DA 0064 0000 0063 0018 0400", "a.pix", 1},
        {"474 wide, no extension", "01DA 0064 0000 0063 0018 0400", "a", 1},
        {"474 wide, SGI name", "01DA 0064 0000 0063 0018 0400", "a.rgb", 0},
        {"474 wide, SGI name", "01DA 0064 0000 0063 0018 0400", "a.bw", 0},
        {"474 wide, SGI name", "01DA 0064 0000 0063 0018 0400", "a.sgi", 0},
        {"474 wide, x offset 2, 3 behind", "01DA 0001 0002 0000 0008 0003", "a.pix", 0},
        {"474 wide, x offset 2, 5 behind", "01DA 0001 0002 0000 0008 0005", "a.pix", 1},
        {"474 wide, x offset 2, 0 behind", "01DA 0001 0002 0000 0008 0000", "a.pix", 1},
        {"474 wide, x offset 4", "01DA 0001 0004 0000 0008 0003", "a.pix", 1},
        {"474 wide, x offset 0, 3 behind", "01DA 0001 0000 0000 0008 0003", "a.pix", 1},
    };
    // clang-format on
    vyn__err = -99;
    for (const Case &c : cases) {
        make(c.name, hex(c.bytes));
        EXPECT_EQ(module.is_file(path(c.name).c_str(), nullptr), c.is_pix) << c.what;

        FILE *stream = fopen(path(c.name).c_str(), "r");
        ASSERT_NE(stream, nullptr);
        fseek(stream, 1, SEEK_SET);
        EXPECT_EQ(module.is_file(path(c.name).c_str(), stream), c.is_pix) << c.what;
        EXPECT_EQ(ftell(stream), static_cast<long>(hex(c.bytes).size())) << c.what;
        fclose(stream);
    }
    EXPECT_EQ(module.is_file(path("none.pix").c_str(), nullptr), 0);
    EXPECT_EQ(vyn__err, -99);
    EXPECT_EQ(messages(), std::vector<int>{});
}
