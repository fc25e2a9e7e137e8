// The built program, run through the shell as people run it, in a directory of sample sets: what it
// prints, how it exits, which files it leaves, and what comes back from a round trip.
#include "tests/support.h"

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfMultiPartOutputFile.h>
#include <OpenEXR/ImfOutputFile.h>
#include <OpenEXR/ImfOutputPart.h>
#include <OpenEXR/ImfPartType.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
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

// `out` and `err` are parts of what is printed, "" for nothing there; `made` are the files that are
// new afterwards, each with a blank behind it.
struct Row {
    const char *command;
    int code = 0;
    const char *out = "";
    const char *err = "";
    const char *made = "";
};

const Row ROWS[] = {
    {.command = "vorla info a.pix", .out = "4 x 2"},
    {.command = "vorla info -- -x.pix", .out = "-x.pix"},
    {.command = "vorla info näh*", .out = "näh 雪.pix"},
    {.command = "vorla info --json d.pix", .code = 1, .out = "\"depth_kind\":\"float\""},
    {.command = "cat a.pix | vorla info -", .out = "4 x 2"},
    {.command = "vorla info text.pix missing.pix a.pix",
     .code = 3,
     .out = "a.pix",
     .err = "vorla: missing.pix: "},
    {.command = "vorla info --json missing.pix",
     .code = 3,
     .out = "{\"file\":\"missing.pix\",\"error\":\"cannot open: No such file",
     .err = "missing.pix"},
    {.command = "n=$(printf \"\\377\"); cp c.pix $n; vorla info --json $n",
     .out = "\"file_bytes\":\"ff\"",
     .made = "r/\xFF "},
    {.command = "cd /; KV_IMG_DIR=$OLDPWD vorla info --search a.pix", .out = "4 x 2"},
    {.command = "vorla info ../depth/a.pix", .code = 1, .err = "the depth file of a picture"},
    {.command = "vorla export a.pix a.exr; vorla info a.exr",
     .code = 1,
     .err = "it is an OpenEXR file",
     .made = "r/a.exr "},
    {.command = "mkfifo p; vorla info p", .code = 3, .err = "use the name -"},
    {.command = "vorla probe a.pix m.pix", .out = "m.pix: PIX"},
    {.command = "vorla probe a.pix text.pix", .code = 1, .out = "text.pix: not PIX"},
    {.command = "vorla probe missing.pix", .code = 3, .err = "vorla: missing.pix: "},
    {.command = "vorla module", .out = ".pix"},
    {.command = "vorla module --module missing.so", .code = 4, .err = "vorla: ./missing.so: "},
    {.command = "VORLA_MODULE=/dev/null vorla probe a.pix", .code = 4, .err = "vorla: /dev/null: "},
    {.command = "vorla verify a.pix", .out = "a.pix: ok (2 rows; colour, matte, depth)\n"},
    {.command = "vorla verify --channels rgb a.pix", .out = "a.pix: ok (2 rows; colour)\n"},
    {.command = "vorla verify -q a.pix cut.pix",
     .code = 1,
     .out = "cut.pix: cannot read scanline 0: the file ends too early\n"},
    {.command = "vorla verify -j 1 cut.pix c.pix",
     .code = 1,
     .out = "cut.pix: cannot read scanline 0: the file ends too early\nc.pix: ok"},
    {.command = "vorla verify -j 3 cut.pix c.pix missing.pix a.pix",
     .code = 3,
     .out = "cut.pix: cannot read scanline 0: the file ends too early\nc.pix: ok (2 rows; "
            "colour)\na.pix: ok",
     .err = "vorla: missing.pix: "},
    {.command = "vorla verify f.pix.e ./f.pix.o", .out = "f.pix.e: ok (2 rows; colour)\n"},
    {.command = "vorla verify -r .", .code = 1, .out = "d.pix: "},
    {.command = "cp c.pix .vorla-1-1.tmp; mkdir s; mv .v* s; vorla verify -r s",
     .err = "no PIX files here",
     .made = "r/s/.vorla-1-1.tmp "},
    {.command = "vorla verify .", .code = 3, .err = "directory"},
    {.command = "vorla verify .//./a.pix", .out = "colour, matte, depth"},
    {.command = "mkdir s; cd s; vorla verify ../a.pix", .out = "colour, matte, depth"},
    {.command = "mkdir ../mask/c.pix; vorla verify c.pix",
     .code = 3,
     .err = "Is a directory; --channels rgb opens the rest"},
    {.command = ":>../mask/c.pix; vorla verify c.pix",
     .code = 1,
     .out = "../mask/c.pix ends within its header; --channels rgb",
     .made = "mask/c.pix "},
    {.command = ":>../tmp/e.pix; vorla verify -r ../tmp",
     .code = 1,
     .out = "within its header",
     .made = "tmp/e.pix "},
    {.command = "rm f.pix.o; vorla verify f.pix",
     .code = 3,
     .err = "cannot open the field f.pix.o"},
    {.command = "rm f.pix.o; vorla probe f.pix", .code = 3, .err = "f.pix.o: "},
    {.command = "rm ../depth/d.pix; mkdir ../depth/d.pix; vorla info d.pix",
     .code = 3,
     .err = "Is a directory; --channels matte"},
    {.command = "ln -sf no ../depth/d.pix; vorla verify d.pix",
     .code = 3,
     .out = "the matte",
     .err = "the depth"},
    {.command =
         "rm -r ../mask; ln -s mask ../mask; vorla verify a.pix; c=$?; rm ../mask; (exit $c)",
     .code = 3,
     .err = "the matte ../mask/a.pix cannot be read: Too many levels"},
    {.command = "mkdir -p ../s/n; ln -s ../../r/a.pix ../s/n/l.pix; vorla verify ../s/n/l.pix",
     .code = 1,
     .out = "stands beside the file that the link leads to"},
    {.command = "mkdir ../s; ln -s ../r ../s/n; vorla export ../s/n/a.pix a.png",
     .code = 1,
     .err = "mask/a.pix stands beside the file",
     .made = "r/a.png "},
    {.command = "printf %1000s >>c.pix; vorla verify c.pix",
     .code = 1,
     .out = "c.pix: 1000 bytes follow the last row\n"},
    {.command = "printf %3s >>../depth/a.pix; vorla verify a.pix",
     .code = 1,
     .out = "3 bytes follow the last row of ../depth/a.pix"},
    {.command = "printf %3s >>f.pix.o; vorla verify f.pix",
     .code = 1,
     .out = "3 bytes follow the last row of f.pix.o"},
    {.command = "printf '\\4' >>../mask/a.pix; truncate -s 13 ../mask/a.pix; vorla verify a.pix",
     .code = 1,
     .out = "cannot read scanline 0: ../mask/a.pix ends too early; --channels rgb"},
    {.command =
         "printf '\\0\\4\\0\\2\\0\\0\\0\\1\\0\\10\\5\\0\\4\\0' >../mask/a.pix; vorla verify a.pix",
     .code = 1,
     .out = "the runs in ../mask/a.pix add up to more than 4 pixels; --channels rgb"},
    {.command = "truncate -s 30 ../depth/a.pix; vorla verify a.pix",
     .code = 1,
     .out = "../depth/a.pix ends too early; --channels matte"},
    {.command = "vorla verify missing.pix cut.pix",
     .code = 3,
     .out = "cut.pix: cannot read scanline 0: the file ends too early\n",
     .err = "vorla: missing.pix: "},
    {.command = "vorla export a.pix a.png", .made = "r/a.png "},
    {.command = "vorla export a.pix - | cat", .out = "PNG"},
    {.command = "vorla export cut.pix - | wc -c",
     .out = "0\n",
     .err = "vorla: cut.pix: cannot read scanline 0: the file ends too early\n"},
    {.command = "cat m.pix | vorla export - m.png", .made = "r/m.png "},
    {.command = "vorla export --depth-picture z.png a.pix a.png",
     .err = "z.png",
     .made = "r/a.png r/z.png "},
    {.command = "vorla export -q --depth-picture z.png a.pix a.png", .made = "r/a.png r/z.png "},
    {.command = "vorla export --to png a.pix c.pix ../tmp", .made = "tmp/a.png tmp/c.png "},
    {.command = "vorla export --to png f.pix.e ../r/f.pix.o f.pix ../tmp", .made = "tmp/f.png "},
    {.command = "vorla export --to png a.pix cut.pix missing.pix ../tmp",
     .code = 3,
     .err = "cut.pix: ",
     .made = "tmp/a.png "},
    {.command = "vorla export --to png a.pix cp/a.pix ../tmp",
     .code = 2,
     .err = "is made of a.pix"},
    {.command = "vorla export cut.pix cut.png",
     .code = 1,
     .err = "vorla: cut.pix: cannot read scanline 0: the file ends too early\n"},
    {.command = "vorla export --partial cut.pix cut.png",
     .code = 1,
     .err = "cut.pix: 1 of 2 rows cannot be read and are black; the first: cannot read scanline 0",
     .made = "r/cut.png "},
    {.command = "vorla export a.pix m.pix", .code = 2, .err = "vorla: m.pix: "},
    {.command = "vorla export --to exr a.pix exr", .code = 2, .err = "exr: no such directory"},
    {.command = "vorla export --to exr a.pix c.pix exr",
     .code = 2,
     .err = "exr: no such directory"},
    {.command =
         "vorla export a.pix a.png; chmod 600 a.png; vorla export -f a.pix a.png; stat -c %a a.png",
     .out = "600\n",
     .made = "r/a.png "},
    {.command = ":>a.png; vorla export --skip-existing --to png c.pix a.pix .; stat -c %s a.png",
     .out = "0\n",
     .made = "r/a.png r/c.png "},
    {.command = "vorla export --to png -f a.pix m.7; vorla export --to png c.pix m.7",
     .code = 3,
     .err = "-f",
     .made = "r/m.7 "},
    {.command = "cp c.pix b.7; vorla export -f --to png b.7 ../r/b.7",
     .code = 2,
     .err = "the picture itself",
     .made = "r/b.7 "},
    {.command = "vorla export --to png a.pix ../tmp --depth-picture ../r/../tmp/a.png",
     .code = 2,
     .err = "cannot be both"},
    {.command = "vorla export --to png a.pix /dev/stdout >&-",
     .code = 3,
     .err = "standard output: "},
    {.command = "vorla export a.pix a.pix/a.png", .code = 3, .err = "vorla: a.pix/a.png: "},
    {.command = "vorla export a.pix b.png --depth-picture a.pix/z.png",
     .code = 3,
     .err = "a.pix/z.png: "},
    {.command = "vorla export --linear a.pix a.png", .code = 2, .err = "OpenEXR"},
    {.command = "vorla export --level 1 a.pix a.exr", .code = 2, .err = "--level is for PNG"},
    {.command = "vorla export a.pix a.tga", .code = 2, .err = "a.tga"},
    {.command = "vorla export a.pix c.pix ../tmp", .code = 2, .err = "--to"},
    {.command = "vorla export a.pix", .code = 2, .err = "OUT is missing"},
    {.command = "vorla export a.pix - >../tmp/a.7; vorla import -f ../tmp/a.7 ../tmp/a.7",
     .code = 2,
     .err = "the picture to import",
     .made = "tmp/a.7 "},
    {.command = "vorla import text.pix b.pix",
     .code = 1,
     .err = "vorla: text.pix: cannot import: it begins like neither"},
    {.command = "vorla import c.pix b.pix", .code = 1, .err = "is PIX already"},
    {.command = "vorla export c.pix - | vorla import - b.7e", .code = 2, .err = "field"},
    {.command = "vorla export c.pix - | vorla import - f.pix", .code = 3, .err = "f.pix.e"},
    {.command = "vorla export c.pix - | vorla import - b.png",
     .code = 2,
     .err = "the name ends in .png"},
    {.command = "vorla export c.pix - >x.exr; vorla import x.exr b.pix; cmp b.pix c.pix",
     .made = "r/b.pix r/x.exr "},
    {.command = "vorla export c.pix - >../mask/b.pix; vorla import -f ../mask/b.pix b.pix",
     .code = 2,
     .err = "the picture to import",
     .made = "mask/b.pix "},
    {.command = "vorla import missing.png b.pix", .code = 3, .err = "vorla: missing.png: "},
    {.command = "vorla import a.png b.png out.pix",
     .code = 2,
     .err = "import takes one IN and one OUT, or several IN and a directory"},
    {.command = "vorla export --to exr a.pix c.pix ../tmp; mkdir -p ../b/r; vorla import -j 2 "
                "../tmp/*.exr ../b/r",
     .made = "b/depth/a.pix b/mask/a.pix b/r/a.pix b/r/c.pix tmp/a.exr tmp/c.exr "},
    {.command = "vorla export a.pix a.exr; mkdir -p ../s/store/r ../s/job; ln -s ../store/r "
                "../s/job/r; vorla import a.exr ../s/job/r/b.pix",
     .made = "r/a.exr s/store/depth/b.pix s/store/mask/b.pix s/store/r/b.pix "},
    {.command = "vorla export a.pix a.exr; mkdir ../b; { (ulimit -f 0; vorla import a.exr "
                "../b/b.pix); echo $?; } 2>&1 | cat",
     .out = "File too large\n3\n",
     .made = "r/a.exr "},
    {.command = "vorla info a.pix >/dev/full", .code = 3, .err = "No space left on device"},
    {.command = "vorla verify a.pix >&-", .code = 3, .err = "Bad file descriptor"},
    {.command = "vorla export a.pix - >/dev/full", .code = 3, .err = "No space left on device"},
    {.command = "vorla export a.pix - >&-", .code = 3, .err = "vorla: "},
    {.command = "vorla", .code = 2, .err = "verify"},
    {.command = "vorla help", .out = "verify"},
    {.command = "vorla --help", .out = "verify"},
    {.command = "vorla info --wrong a.pix", .code = 2, .err = "--wrong"},
    {.command = "vorla info --channels grey a.pix", .code = 2, .err = "grey"},
};

// Whether `part` is in `whole`; nothing must be in it when `part` is empty.
bool has(const std::string &whole, const std::string &part)
{
    return part.empty() ? whole.empty() : whole.find(part) != std::string::npos;
}

} // namespace

TEST_F(VorlaTest, Commands)
{
    for (const Row &row : ROWS) {
        const auto before = files();
        const Outcome r = run(row.command);
        EXPECT_EQ(r.code, row.code) << row.command;
        EXPECT_TRUE(has(r.out, row.out)) << row.command << "\n" << r.out;
        EXPECT_TRUE(has(r.err, row.err)) << row.command << "\n" << r.err;
        std::string made;
        for (const std::string &name : files()) {
            made += std::binary_search(before.begin(), before.end(), name) ? "" : name + " ";
        }
        EXPECT_EQ(made, row.made) << row.command;
        TearDown(); // a fresh directory
        SetUp();
    }
}

// What file managers and shells get: the lines are run as those would run them.
TEST_F(VorlaTest, Desktop)
{
    EXPECT_EQ(run("mkdir -p ../s/packages; cp " DESKTOP_PATH "/vorla.xml ../s/packages; "
                  "update-mime-database ../s; cat ../s/globs2")
                  .out,
              "# This file was automatically generated by the\n# update-mime-database command. "
              "DO NOT EDIT!\n50:image/x-vorla-pix:*.pix\n");
    good("touch t; line=$(sed -n 's/^Exec=//p' " DESKTOP_PATH "/vorla.thumbnailer | "
         "sed 's/%s/2/; s/%i/a.pix/; s/%o/t/'); eval \"$line\"");
    EXPECT_EQ(rgba("t"), hex("185088A0 191108C0"));
    const Outcome r = run("bash -c '. " DESKTOP_PATH "/vorla.bash; COMP_WORDS=(vorla export --si); "
                          "COMP_CWORD=2; _vorla; echo ${COMPREPLY[@]}'");
    EXPECT_EQ(r.out, "--size\n");
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
    EXPECT_EQ(run("vorla import y.exr y.pix && vorla import -q --matte y.exr ym.pix").err,
              "vorla: y.exr: 2 of 4 samples outside 0 to 1 clamped\n");
    EXPECT_EQ(contents("r/y.pix"),
              colour_header(2, 2) + hex("01000000 01FFFFFF 01FFFFFF 01000000"));
    EXPECT_EQ(contents("r/ym.pix"), colour_header(2, 2, 8) + hex("0100 01FF 01FF 0100"));
}

// What import leaves out or changes, in two parts of a file at an offset.
TEST_F(VorlaTest, ImportSaysWhatItChanges)
{
    const Imath::Box2i window({0, 0}, {1, 1});
    Imf::Header header({{0, 0}, {7, 7}}, window);
    header.setType(Imf::SCANLINEIMAGE);
    Imf::FrameBuffer buffer;
    const auto add = [&](const char *channel, float *samples) {
        header.channels().insert(channel, Imf::Channel(Imf::FLOAT));
        buffer.insert(channel, Imf::Slice::Make(Imf::FLOAT, samples, window));
    };
    float red[] = {0, 0.5, NAN, 2};
    float depths[] = {0.25, 3e9, INFINITY, -1};
    add("R", red);
    add("G", red);
    add("Z", depths);
    add("fog.R", red);
    Imf::Header parts[] = {header, header};
    parts[0].setName("left");
    parts[1].setName("right");
    {
        Imf::MultiPartOutputFile file("n.exr", parts, 2);
        for (const int part : {0, 1}) {
            Imf::OutputPart output(file, part);
            output.setFrameBuffer(buffer);
            output.writePixels(2);
        }
    }
    EXPECT_EQ(run("vorla import n.exr n.pix").err,
              "vorla: n.exr: only the first of 2 parts is taken\n"
              "vorla: n.exr: left out: fog.R\n"
              "vorla: n.exr: there is no channel B; it is black\n"
              "vorla: n.exr: the data window, 2 x 2 at 0, 0, is taken, not the display window, "
              "8 x 8 at 0, 0\n"
              "vorla: n.exr: 4 of 8 samples outside 0 to 1 clamped\n"
              "vorla: n.exr: 1 of 4 depths rounded to whole numbers; --depth-scale multiplies them "
              "first\n"
              "vorla: n.exr: 2 of 4 depths outside 0 to 2147483647 clamped\n");
    EXPECT_EQ(contents("depth/n.pix"),
              depth_header(2, 2) + hex("00000000 7FFFFFFF 05F5E100 00000000"));
    good("vorla import -qf --depth-scale 100 n.exr n.pix");
    EXPECT_EQ(contents("depth/n.pix"),
              depth_header(2, 2) + hex("00000019 7FFFFFFF 05F5E100 00000000"));
}

// Rows 1 and 2 of five cannot be decoded; behind them the rows are found again.
TEST_F(VorlaTest, RowsBehindDamagedOnes)
{
    const Bytes bad = hex("05050505");
    const Bytes good_row = hex("04102030");
    make("r/p.pix", colour_header(4, 5) + good_row + bad + bad + good_row + good_row);
    make("r/q.pix", colour_header(4, 2) + bad + good_row);
    EXPECT_EQ(run("vorla export p.pix p.png").code, 1);
    const Outcome r = run("vorla export --partial p.pix q.pix --to png .");
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, "vorla: p.pix: 2 of 5 rows cannot be read and are black; the first: cannot "
                     "decode scanline 3: the runs in the file add up to more than 4 pixels\n"
                     "vorla: q.pix: 1 of 2 rows cannot be read and are black; the first: cannot "
                     "decode scanline 1: the runs in the file add up to more than 4 pixels\n");
    const Bytes black = hex("000000FF 000000FF 000000FF 000000FF");
    const Bytes seen = hex("302010FF 302010FF 302010FF 302010FF");
    EXPECT_EQ(rgba("p.png"), seen + black + black + seen + seen);
    EXPECT_EQ(rgba("q.png"), black + seen);
}

TEST_F(VorlaTest, SamplesOfAPng)
{
    EXPECT_NE(run("vorla export a.pix a.png --depth-picture z.png").err.find("not the depth"),
              std::string::npos);
    EXPECT_EQ(rgba("a.png"), hex("0080FFFF 0080FFFF 020100FF 020100FF"
                                 "30201000 30201080 30201080 30201080"));
    EXPECT_EQ(contents("r/z.png")[24], 16);              // bits
    good("vorla export --size 2 --level 9 a.pix s.png"); // the mean of all rows, two columns
    EXPECT_EQ(rgba("s.png"), hex("185088A0 191108C0"));
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
    const std::string interrupted = "timeout -s INT 0.3 '" VORLA_PATH "' ";
    EXPECT_EQ(run(interrupted + "export large.pix large.png").code, 124);
    EXPECT_EQ(run("cp large.pix b.pix; " + interrupted +
                  "export -j 2 --to png large.pix b.pix .; "
                  "c=$?; rm b.pix; (exit $c)")
                  .code,
              124);
    EXPECT_EQ(files(), before);
    good("vorla export large.pix large.png");
    EXPECT_EQ(run(interrupted + "import large.png b.pix").code, 124);
    EXPECT_FALSE(fs::exists("b.pix"));
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
