// Which files the module takes for its own.
#include "tests/support.h"

using ProbeTest = ModuleTest;

// Sizes and bits of every value are tried in ExhaustTest.
TEST_F(ProbeTest, TheFirstTwelveBytesDecideAndTheNameWhereTheyAreUnclear)
{
    struct Case {
        std::string bytes;
        bool is_pix = true;
        const char *name = "a.pix";
    };
    const Case cases[] = {
        {.bytes = "0080 0060 0000 005F 0018 0400", .name = "a.rgb"},
        {.bytes = "0080 0060 0000 005F 0018 04", .is_pix = false},
        {.bytes = "01DA 01DA 0000 01D9 0018 0001", .name = "a.rgb"}, // the y offset is width - 1
        {.bytes = "01DA 01DA 0001 01D9 0018 0400", .is_pix = false, .name = "a.rgb"},
        {.bytes = "01DA 0064 0000 0063 0018 0400", .name = "a"},
        {.bytes = "01DA 0064 0000 0063 0018 0400", .is_pix = false, .name = "a.rgb"},
        {.bytes = "01DA 0064 0000 0063 0018 0400", .is_pix = false, .name = "a.bw"},
        {.bytes = "01DA 0064 0000 0063 0018 0400", .is_pix = false, .name = "a.sgi"},
        {.bytes = "01DA 0101 0000 0280 0018 0001"}, // of SGI images 1 to 3 dimensions
        {.bytes = "01DA 0101 0001 0280 0018 0001", .is_pix = false},
        {.bytes = "01DA 0101 0003 0280 0018 0004", .is_pix = false},
        {.bytes = "01DA 0101 0004 0280 0018 0004"},
        {.bytes = "01DA 0101 0001 0280 0018 0000"}, // and 1 to 4 channels
        {.bytes = "01DA 0101 0003 0280 0018 0005"},
    };
    for (const Case &c : cases) {
        make(c.name, hex(c.bytes));
        FILE *stream = fopen(path(c.name).c_str(), "r");
        fseek(stream, 1, SEEK_SET);
        EXPECT_EQ(module.is_file(path(c.name).c_str(), nullptr), c.is_pix) << c.name << c.bytes;
        EXPECT_EQ(module.is_file(path(c.name).c_str(), stream), c.is_pix) << c.name << c.bytes;
        EXPECT_EQ(ftell(stream), static_cast<long>(hex(c.bytes).size())) << c.bytes;
        fclose(stream);
    }
    EXPECT_EQ(module.is_file(path("none.pix").c_str(), nullptr), 0);
    EXPECT_EQ(vyn__err, 0);
    EXPECT_EQ(messages(), std::vector<int>{});
}
