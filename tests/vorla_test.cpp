// The built program, run through the shell as people run it, in a directory of sample sets: what it
// prints, how it exits, which files it leaves, and what comes back from a round trip.
#include "tests/support.h"

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfOutputFile.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

// The samples of a PNG as libpng sees them: red, green, blue and alpha of each pixel.
Bytes rgba(const std::string &name)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_file(&image, name.c_str()), 0) << name << image.message;
    image.format = PNG_FORMAT_RGBA;
    Bytes samples(PNG_IMAGE_SIZE(image));
    EXPECT_NE(png_image_finish_read(&image, nullptr, samples.data(), 0, nullptr), 0) << name;
    return samples;
}

struct Outcome {
    int code = -1;
    std::string out, err;
};

class VorlaTest : public ModuleTest {
  protected:
    // Pictures lie in "r", which is the current directory of every command.
    void SetUp() override
    {
        ModuleTest::SetUp();
        fs::create_directory(path("tmp"));
        fs::current_path(path("r"));
        const Bytes row = hex("02FF8000 02000102");
        const Bytes header = colour_header(4, 2);
        const Bytes matte = colour_header(4, 2, 8);
        const Bytes depths = hex("00000001 05F5E100 7FFFFFFF 01000001");
        make("r/a.pix", header + row + hex("04102030"));
        make("mask/a.pix", matte + hex("04FF 01000380"));
        make("depth/a.pix", depth_header(4, 2) + depths + depths);
        for (const char *plain : {"r/c.pix", "r/-x.pix", "r/n\xC3\xA4h \xE9\x9B\xAA.pix"}) {
            make(plain, header + row + row);
        }
        make("r/m.pix", matte + hex("04FF 02000280"));
        make("r/d.pix", header + row + row);
        make("mask/d.pix", colour_header(3, 2, 8) + hex("03FF 03FF")); // too narrow
        make("depth/d.pix", depth_header(4, 2, 55655) + hex("4CBEBC20") + Bytes(28));
        make("r/cut.pix", header + row + hex("01"));
        make("r/f.pix.e", colour_header(4, 1) + row);
        make("r/f.pix.o", colour_header(4, 1) + row);
        make("r/text.pix", Bytes(40, 'x'));
    }

    // Runs shell text, in which "vorla" is the program.
    Outcome run(const std::string &command) const
    {
        const std::string line =
            "export TMPDIR=../tmp ASAN_OPTIONS=exitcode=99:quarantine_size_mb=1\n"
            "vorla() { '" VORLA_PATH "' \"$@\"; }\n"
            "{ " +
            command + "\n} </dev/null >../out 2>../err";
        const int status = std::system(line.c_str()); // NOLINT(cert-env33-c)
        const auto text = [this](const char *name) {
            const Bytes bytes = contents(name);
            fs::remove(path(name));
            return std::string(bytes.begin(), bytes.end());
        };
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text("out"), text("err")};
    }

    void good(const std::string &command) const
    {
        const Outcome r = run(command);
        EXPECT_EQ(r.code, 0) << command << "\n" << r.err;
        EXPECT_EQ(r.err, "") << command;
    }
};

// clang-format off
// `out` and `err` are parts of what is printed, "" for nothing there; `made` are the files that are
// new afterwards, each with a blank behind it.
struct Case { const char *command; int code; const char *out, *err, *made; };

#define CUT "cut.pix: cannot read scanline 0: the file ends too early\n"
const Case CASES[] = {
    {"vorla info a.pix", 0, "4 x 2", "", ""},
    {"vorla info -- -x.pix", 0, "-x.pix", "", ""},
    {"vorla info näh*", 0, "näh 雪.pix", "", ""},
    {"vorla info --json d.pix", 0, "\"depth_kind\":\"float\"", "", ""},
    {"cat a.pix | vorla info -", 0, "4 x 2", "", ""},
    {"vorla info text.pix missing.pix a.pix", 3, "a.pix", "vorla: missing.pix: ", ""},
    {"cd /; KV_IMG_DIR=$OLDPWD vorla info --search a.pix", 0, "4 x 2", "", ""},
    {"vorla probe a.pix m.pix", 0, "m.pix: PIX", "", ""},
    {"vorla probe a.pix text.pix", 1, "text.pix: not PIX", "", ""},
    {"vorla probe missing.pix", 3, "", "vorla: missing.pix: ", ""},
    {"vorla module", 0, ".pix", "", ""},
    {"vorla module --module missing.so", 4, "", "vorla: ./missing.so: ", ""},
    {"VORLA_MODULE=/dev/null vorla probe a.pix", 4, "", "vorla: /dev/null: ", ""},
    {"vorla verify a.pix", 0, "a.pix: ok (2 rows; colour, matte, depth)\n", "", ""},
    {"vorla verify --channels rgb a.pix", 0, "a.pix: ok (2 rows; colour)\n", "", ""},
    {"vorla verify cut.pix c.pix", 1, CUT "c.pix: ok", "", ""},
    {"vorla verify -r .", 1, "d.pix: ", "", ""},
    {"vorla verify .", 3, "", "directory", ""},
    {"vorla verify .//./a.pix", 0, "colour, matte, depth", "", ""},
    {"mkdir ../r/s; cd s; vorla verify ../a.pix; c=$?; rmdir ../s; (exit $c)", 0, "colour, matte, depth", "", ""},
    {"mkdir ../mask/c.pix; vorla verify c.pix; c=$?; rmdir ../mask/c.pix; (exit $c)", 3, "", "Is a directory", ""},
    {":>../tmp/e.pix; vorla verify -r ../tmp; c=$?; rm ../tmp/e.pix; (exit $c)", 1, "within its header", "", ""},
    {"mv f.pix.o ../tmp; vorla verify f.pix; c=$?; mv ../tmp/f.pix.o .; (exit $c)", 3, "", "f.pix.o", ""},
    {"mv f.pix.o ../tmp; vorla probe f.pix; c=$?; mv ../tmp/f.pix.o .; (exit $c)", 3, "", "f.pix.o: ", ""},
    {"mv ../depth/d.pix ../tmp; mkdir ../depth/d.pix; vorla info d.pix; c=$?; rmdir ../depth/d.pix; mv ../tmp/d.pix ../depth; (exit $c)", 3, "", "Is a directory", ""},
    {"mv ../depth/d.pix ../tmp; ln -s no ../depth/d.pix; vorla verify d.pix; c=$?; mv ../tmp/d.pix ../depth; (exit $c)", 3, "the matte", "the depth", ""},
    {"vorla verify missing.pix cut.pix", 3, CUT, "vorla: missing.pix: ", ""},
    {"vorla export a.pix a.png", 0, "", "", "r/a.png "},
    {"vorla export a.pix - | cat", 0, "PNG", "", ""},
    {"cat m.pix | vorla export - m.png", 0, "", "", "r/m.png "},
    {"vorla export --depth-picture z.png a.pix a.png", 0, "", "z.png", "r/a.png r/z.png "},
    {"vorla export --to png a.pix c.pix ../tmp", 0, "", "", "tmp/a.png tmp/c.png "},
    {"vorla export --to png a.pix cut.pix missing.pix ../tmp", 3, "", "cut.pix: ", "tmp/a.png "},
    {"vorla export cut.pix cut.png", 1, "", "vorla: " CUT, ""},
    {"vorla export a.pix m.pix", 2, "", "vorla: m.pix: ", ""},
    {"vorla export --to png -f a.pix m.png; vorla export c.pix m.png", 3, "", "-f", "r/m.png "},
    {"vorla export -f --to png a.pix a.pix", 2, "", "the picture itself", ""},
    {"vorla export -f --to png a.pix ../mask/a.pix", 2, "", "the picture itself", ""},
    {"vorla export --to png a.pix ../tmp --depth-picture ../r/../tmp/a.png", 2, "", "cannot be both", ""},
    {"vorla export --to png a.pix /dev/stdout >&-", 3, "", "standard output: ", ""},
    {"vorla export a.pix - >../tmp/a.png; vorla import -f ../tmp/a.png ../tmp/a.png", 2, "",
     "the picture to import", "tmp/a.png "},
    {"vorla export a.pix a.pix/a.png", 3, "", "vorla: a.pix/a.png: ", ""},
    {"vorla export a.pix b.png --depth-picture a.pix/z.png", 3, "", "a.pix/z.png: ", ""},
    {"vorla import text.pix b.pix", 1, "", "vorla: text.pix: ", ""},
    {"vorla export c.pix - | vorla import - b.7e", 2, "", "field", ""},
    {"vorla export c.pix - | vorla import - f.pix", 3, "", "f.pix.e", ""},
    {"vorla export c.pix - >../mask/b.pix; vorla import -f ../mask/b.pix b.pix; c=$?; rm ../mask/b.pix; (exit $c)", 2, "", "the picture to import", ""},
    {"vorla import missing.png b.pix", 3, "", "vorla: missing.png: ", ""},
    {"vorla info a.pix >/dev/full", 3, "", "No space left on device", ""},
    {"vorla verify a.pix >&-", 3, "", "Bad file descriptor", ""},
    {"vorla export a.pix - >/dev/full", 3, "", "No space left on device", ""},
    {"vorla export a.pix - >&-", 3, "", "vorla: ", ""},
    {"vorla", 2, "", "vorla", ""},
    {"vorla --help", 0, "verify", "", ""},
    {"vorla info --wrong a.pix", 2, "", "--wrong", ""},
    {"vorla info --channels grey a.pix", 2, "", "grey", ""},
    {"vorla export a.pix", 2, "", "OUT is missing", ""},
    {"vorla export --linear a.pix a.png", 2, "", "OpenEXR", ""},
    {"vorla export a.pix a.tga", 2, "", "a.tga", ""},
    {"vorla export a.pix c.pix ../tmp", 2, "", "--to", ""},
};
// clang-format on

// Whether `part` is in `whole`; nothing must be in it when `part` is empty.
bool has(const std::string &whole, const std::string &part)
{
    return part.empty() ? whole.empty() : whole.find(part) != std::string::npos;
}

} // namespace

TEST_F(VorlaTest, Commands)
{
    const auto before = files();
    for (const Case &c : CASES) {
        const Outcome r = run(c.command);
        EXPECT_EQ(r.code, c.code) << c.command;
        EXPECT_TRUE(has(r.out, c.out)) << c.command << "\n" << r.out;
        EXPECT_TRUE(has(r.err, c.err)) << c.command << "\n" << r.err;
        std::string made;
        for (const std::string &name : files()) {
            if (!std::binary_search(before.begin(), before.end(), name)) {
                made += name + " ";
                fs::remove(path(name));
            }
        }
        EXPECT_EQ(made, c.made) << c.command;
    }
}

TEST_F(VorlaTest, RoundTrips)
{
    fs::create_directories("../b/r");
    for (const std::string type : {"png", "exr"}) {
        for (const std::string name : {"a.pix", "m.pix", "c.pix"}) {
            setenv("n", name.c_str(), 1);
            setenv("t", type.c_str(), 1);
            setenv("matte", name == "m.pix" ? "--matte" : "", 1);
            good("vorla export -f $n 1.$t && vorla import -f $matte 1.$t ../b/r/$n && "
                 "vorla export -f ../b/r/$n 2.$t");
            EXPECT_EQ(contents("r/1." + type), contents("r/2." + type)) << name;
            EXPECT_EQ(contents("r/" + name), contents("b/r/" + name)) << name << type;
            EXPECT_EQ(contents("mask/" + name), contents("b/mask/" + name)) << name << type;
        }
        EXPECT_EQ(contents("b/depth/a.pix"), type == "exr" ? contents("depth/a.pix") : Bytes());
    }
    good("vorla export -q --linear --depth float a.pix 3.exr && "
         "vorla import -q --linear 3.exr ../b/r/l.pix");
    EXPECT_EQ(contents("b/r/l.pix"), contents("r/a.pix"));
    EXPECT_EQ(contents("b/mask/l.pix"), contents("mask/a.pix"));
    const Bytes depths = hex("00000001 05F5E100 7FFFFFFF 01000000"); // 24 bits of the last
    EXPECT_EQ(contents("b/depth/l.pix"), depth_header(4, 2) + depths + depths);
    EXPECT_FALSE(contents("r/1.exr") == contents("r/3.exr"));
}

// Pictures of other programs: an interlaced PNG, and grey OpenEXR at an offset.
TEST_F(VorlaTest, OtherPictures)
{
    const Bytes first = hex("010203 010203 0A0B0C");
    const Bytes last = hex("F0F1F2 FFFEFD FFFEFD");
    FILE *file = fopen("i.png", "w");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_set_IHDR(png, info, 3, 2, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_ADAM7, 0, 0);
    png_bytep rows[] = {const_cast<png_bytep>(first.data()), const_cast<png_bytep>(last.data())};
    png_set_rows(png, info, rows);
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    png_destroy_write_struct(&png, &info);
    (void)fclose(file);
    good("vorla import i.png i.pix");
    EXPECT_EQ(contents("r/i.pix"),
              colour_header(3, 2) + hex("02030201 010C0B0A 01F2F1F0 02FDFEFF"));

    const Imath::Box2i window({-5, 7}, {-4, 8});
    Imf::Header header(window, window);
    header.channels().insert("Y", Imf::Channel(Imf::FLOAT));
    float grey[] = {0, 1, 2, -1}; // the last two are clamped
    Imf::FrameBuffer buffer;
    buffer.insert("Y", Imf::Slice::Make(Imf::FLOAT, grey, window));
    {
        Imf::OutputFile picture("y.exr", header);
        picture.setFrameBuffer(buffer);
        picture.writePixels(2);
    }
    good("vorla import y.exr y.pix && vorla import --matte y.exr ym.pix");
    EXPECT_EQ(contents("r/y.pix"),
              colour_header(2, 2) + hex("01000000 01FFFFFF 01FFFFFF 01000000"));
    EXPECT_EQ(contents("r/ym.pix"), colour_header(2, 2, 8) + hex("0100 01FF 01FF 0100"));
}

TEST_F(VorlaTest, SamplesOfAPng)
{
    EXPECT_NE(run("vorla export a.pix a.png --depth-picture z.png").err.find("not the depth"),
              std::string::npos);
    EXPECT_EQ(rgba("a.png"), hex("0080FFFF 0080FFFF 020100FF 020100FF"
                                 "30201000 30201080 30201080 30201080"));
    EXPECT_EQ(contents("r/z.png")[24], 16); // bits
    if (run("command -v pngcheck").code == 0) {
        good("vorla export m.pix m.png && pngcheck -q a.png m.png z.png");
    }
}

TEST_F(VorlaTest, SamplesOfAnExr)
{
    good("vorla export a.pix a.exr");
    Imf::InputFile file("a.exr");
    half blue[8];
    uint32_t depths[8];
    Imf::FrameBuffer buffer;
    buffer.insert("B", Imf::Slice(Imf::HALF, reinterpret_cast<char *>(blue), 2, 8));
    buffer.insert("Z", Imf::Slice(Imf::UINT, reinterpret_cast<char *>(depths), 4, 16));
    file.setFrameBuffer(buffer);
    file.readPixels(0, 1);
    EXPECT_EQ(blue[0], half(1.0F));
    EXPECT_EQ(blue[4], half(16 / 255.0F)); // the second row from the top
    EXPECT_EQ(depths[2], 0x7FFFFFFFU);
    EXPECT_EQ(depths[5], 100000000U);
    EXPECT_EQ(file.header().compression(), Imf::ZIP_COMPRESSION);
    const Outcome seen = run("exrheader a.exr"); // of the package openexr
    EXPECT_TRUE(seen.code == 127 || seen.out.find("A, 16-bit floating-point") < seen.out.size());
}

TEST_F(VorlaTest, DamagedPicturesAreRefused)
{
    for (const std::string name : {"a.png", "a.exr"}) {
        good("vorla export a.pix " + name);
        const Bytes whole = contents("r/" + name);
        const auto before = files();
        const size_t step = 1 + whole.size() / 60;
        for (size_t at = 0; at < whole.size(); at += step) {
            make("r/" + name, Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(at)));
            const Outcome r = run("vorla import " + name + " b.pix");
            EXPECT_TRUE(r.code == 1 || r.code == 3) << name << " cut at " << at << r.err;
            EXPECT_NE(r.err.find("vorla: " + name + ": "), std::string::npos) << at << r.err;
            EXPECT_EQ(files(), before) << name << " cut at " << at;
            Bytes flipped = whole;
            flipped[at] ^= 0xFF;
            make("r/" + name, flipped);
            const int code =
                run("vorla import " + name + " ../tmp/b.pix; c=$?; rm -f ../*/b.pix; (exit $c)")
                    .code; // what is not checked may be flipped
            EXPECT_TRUE(code == 0 || code == 1 || code == 3) << name << " flipped at " << at;
        }
    }
}

// 245 million samples in a small file.
TEST_F(VorlaTest, LargePictures)
{
    Bytes bytes = colour_header(16320, 5000);
    for (int packet = 0; packet < 5000 * 16320 / 255; ++packet) {
        const auto value = static_cast<uint8_t>(packet);
        bytes.insert(bytes.end(), {255, value, value, value});
    }
    make("r/large.pix", bytes);
    const auto before = files();
    EXPECT_EQ(run("timeout -s INT 0.3 '" VORLA_PATH "' export large.pix large.png").code, 124);
    EXPECT_EQ(files(), before);
    good("vorla export large.pix large.png");
    good("vorla export large.pix large.exr");
    rusage usage = {};
    getrusage(RUSAGE_CHILDREN, &usage);
    EXPECT_LT(usage.ru_maxrss, 200 * 1024) << "KiB";
}

TEST_F(VorlaTest, AWallpaper)
{
    const std::string wallpaper = "/usr/share/backgrounds/xfce/xfce-verticals.png";
    if (!fs::exists(wallpaper)) {
        GTEST_SKIP() << wallpaper << " is missing";
    }
    good("vorla import " + wallpaper + " w.pix && vorla export w.pix w.png");
    EXPECT_TRUE(rgba("w.png") == rgba(wallpaper));
}
