// What an open makes of the headers of a set: each alone, a field with its partner, a companion
// with its image.
#include "tests/support.h"

#include <errno.h>

namespace {

constexpr auto C = [](auto... words) { return colour_header(words...); };
constexpr auto M = [](int width, int height) { return colour_header(width, height, 8); };
constexpr auto D = [](auto... words) { return depth_header(words...); };

// clang-format off
// `name` lies in "r/".
struct Case { const char *what; std::vector<std::pair<const char *, Bytes>> files;
              const char *name; int32_t result; int code; std::vector<int> messages; int32_t mattes, depths; };

const Case CASES[] = {
    {"nothing", {}, "a", 0, -5, {52}, 0, 0},
    {"largest", {{"r/a", C(16383, 16383)}}, "a", 1, 0, {}, 0, 0},
    {"too wide", {{"r/a", C(16384, 1)}}, "a", 0, -8, {60}, 0, 0},
    {"too high", {{"r/a", C(1, 16384)}}, "a", 0, -8, {60}, 0, 0},
    {"no rows", {{"r/a", C(1, 0)}}, "a", 1, 0, {}, 0, 0},
    {"16 bits", {{"r/a", C(1, 1, 16)}}, "a", 0, -8, {60}, 0, 0},
    {"a depth file", {{"r/a", D(24, 24) + hex("00180018")}}, "a", 0, -8, {60}, 0, 0},
    {"9 bytes", {{"r/a", hex("000100010000000000")}}, "a", 0, -5, {-EDOM, 52}, 0, 0},
    {"474 wide", {{"r/a.pix", C(474, 1)}}, "a.pix", 1, 0, {}, 0, 0},
    {"474 wide, SGI name", {{"r/a.rgb", C(474, 1)}}, "a.rgb", 0, -8, {60}, 0, 0},
    {"474 wide, other SGI name", {{"r/a.bw", C(474, 1)}}, "a.bw", 1, 0, {}, 0, 0},

    {"matte short", {{"r/a", C(2, 4)}, {"mask/a", {1}}}, "a", 0, -5, {25}, 0, 0},
    {"matte of 24 bits", {{"r/a", C(2, 4)}, {"mask/a", C(2, 4)}}, "a", 0, -5, {25}, 0, 0},
    {"matte too wide", {{"r/a", C(2, 4)}, {"mask/a", M(16384, 4)}}, "a", 0, -5, {25}, 0, 0},
    {"matte too small", {{"r/a", C(2, 4)}, {"mask/a", M(2, 3)}, {"depth/a", D(2, 4)}}, "a", 1, -5, {43}, 0, 1},
    {"depth short", {{"r/a", C(2, 4)}, {"depth/a", {1}}}, "a", 0, -5, {25}, 0, 0},
    {"depth too high", {{"r/a", C(2, 4)}, {"depth/a", D(2, 16384)}}, "a", 0, -5, {25}, 0, 0},
    {"depth too large", {{"r/a", C(2, 4)}, {"mask/a", M(2, 4)}, {"depth/a", D(3, 4)}}, "a", 1, -5, {257}, 1, 0},
    {"unknown depth", {{"r/a", C(2, 4)}, {"depth/a", D(2, 4, 12345)}}, "a", 1, -5, {257}, 0, 0},
    {"float depth", {{"r/a", C(2, 4)}, {"depth/a", D(2, 4, 55655)}}, "a", 1, 0, {}, 0, 1},

    {"both companions", {{"r/a", C(2, 4)}, {"mask/a", M(2, 4)}, {"depth/a", D(2, 4)}}, "a", 1, 0, {}, 1, 1},
    {"matte alone ignores a depth", {{"r/a", M(2, 4)}, {"depth/a", D(2, 4)}}, "a", 1, 0, {}, 1, 0},

    {"even higher", {{"r/a.e", C(2, 3)}, {"r/a.o", C(2, 2)}}, "a", 1, 0, {}, 0, 0},
    {"odd higher", {{"r/a.e", C(2, 2)}, {"r/a.o", C(2, 3)}}, "a", 0, -8, {259, 60}, 0, 0},
    {"other widths", {{"r/a.e", C(2, 2)}, {"r/a.o", C(3, 2)}}, "a", 0, -8, {259, 60}, 0, 0},
    {"other bits", {{"r/a.e", C(2, 2)}, {"r/a.o", M(2, 2)}}, "a", 0, -8, {259, 60}, 0, 0},
    {"too high together", {{"r/a.e", C(2, 8200)}, {"r/a.o", C(2, 8200)}}, "a", 0, -8, {60}, 0, 0},
    {"sum past 16 bits", {{"r/a.e", C(2, 32768)}, {"r/a.o", C(2, 32768)}}, "a", 1, 0, {}, 0, 0},
    {"odd short", {{"r/a.e", C(2, 4)}, {"r/a.o", {}}}, "a", 0, -8, {60}, 0, 0},
    {"odd missing", {{"r/a.e", C(2, 4)}}, "a", 0, -5, {52}, 0, 0},
    {"odd missing, single there", {{"r/a", C(2, 4)}, {"r/a.e", C(2, 4)}}, "a.e", 0, -5, {52}, 0, 0},
    {"even missing, single there", {{"r/a", C(2, 4)}, {"r/a.o", C(2, 4)}}, "a.o", 1, 0, {}, 0, 0},
    {"matte fields", {{"r/a.e", M(2, 2)}, {"r/a.o", M(2, 2)}}, "a", 1, 0, {}, 1, 0},

    {"matte pair differs", {{"r/a.e", C(2, 4)}, {"r/a.o", C(2, 4)}, {"mask/a.e", M(2, 4)}, {"mask/a.o", C(2, 4)}},
     "a", 0, -5, {259, 25}, 0, 0},
    {"half a matte pair", {{"r/a.e", C(2, 4)}, {"r/a.o", C(2, 4)}, {"mask/a.e", M(2, 4)}}, "a", 1, 0, {}, 0, 0},
    {"depth pair differs", {{"r/a.e", C(2, 4)}, {"r/a.o", C(2, 4)}, {"depth/a.e", D(2, 4)}, {"depth/a.o", D(2, 4, 55655)}},
     "a", 0, -5, {259, 25}, 0, 0},
    {"depth pair too small", {{"r/a.e", C(2, 4)}, {"r/a.o", C(2, 4)}, {"depth/a.e", D(2, 3)}, {"depth/a.o", D(2, 3)}},
     "a", 1, -5, {257}, 0, 0},
};
// clang-format on

} // namespace

TEST_F(ModuleTest, Headers)
{
    for (const Case &c : CASES) {
        SCOPED_TRACE(c.what);
        clear();
        for (const auto &[name, bytes] : c.files) {
            make(name, bytes);
        }
        ImageHandle *handle = standin_new_reader(path(std::string("r/") + c.name).c_str());
        vyn__err = 0;
        errno = EDOM; // the reason where no call fails
        EXPECT_EQ(module.read_open(handle), c.result);
        EXPECT_EQ(vyn__err, c.code);
        EXPECT_EQ(messages(), c.messages);
        EXPECT_EQ(handle->priv->state->plane[PIX_MATTE].present, c.mattes);
        EXPECT_EQ(handle->priv->state->plane[PIX_DEPTH].present, c.depths);
        if (c.result == 1) {
            EXPECT_EQ(image_disagrees(handle), "");
        } else {
            EXPECT_EQ(failed_open_holds(handle), "");
        }
        EXPECT_EQ(handle->close_proc(handle), 0);
        messages();
    }
}
