// The built program, run through the shell as people run it, in a directory of sample sets: what it
// prints, how it exits, which files it leaves, and what comes back from a round trip.
#include "tests/support.h"

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfDeepFrameBuffer.h>
#include <OpenEXR/ImfDeepScanLineOutputFile.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfMultiPartOutputFile.h>
#include <OpenEXR/ImfOutputPart.h>
#include <OpenEXR/ImfPartType.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <numeric>
#include <set>
#include <span>

namespace fs = std::filesystem;

namespace {

// --- Pictures that the program did not make --------------------------------------------------

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

using Channels = std::map<std::string, std::vector<float>>;

// Writes an OpenEXR file of equal parts. Samples of a single row are those of every row. The
// display window of several is 8 x 8 pixels.
void make_exr(const std::string &name, const Imath::Box2i &window, const Channels &channels,
              int parts = 1)
{
    Imf::Header header(parts > 1 ? Imath::Box2i({0, 0}, {7, 7}) : window, window);
    header.setType(Imf::SCANLINEIMAGE);
    header.compression() = Imf::RLE_COMPRESSION;
    Imf::FrameBuffer buffer;
    for (const auto &[channel, samples] : channels) {
        header.channels().insert(channel, Imf::Channel(Imf::FLOAT));
        const size_t width = static_cast<size_t>(window.max.x - window.min.x) + 1;
        Imf::Slice slice = Imf::Slice::Make(Imf::FLOAT, samples.data(), window);
        slice.yStride = samples.size() == width ? 0 : slice.yStride;
        buffer.insert(channel, slice);
    }
    std::vector<Imf::Header> headers(static_cast<size_t>(parts), header);
    for (size_t part = 0; part < headers.size(); ++part) {
        headers[part].setName(std::to_string(part));
    }
    Imf::MultiPartOutputFile file(name.c_str(), headers.data(), parts);
    for (int part = 0; part < parts; ++part) {
        Imf::OutputPart output(file, part);
        output.setFrameBuffer(buffer);
        output.writePixels(window.max.y - window.min.y + 1);
    }
}

// Writes two pixels: one sample in the first, two in the second, the nearer of them first.
void make_deep_exr(const char *name)
{
    Channels channels = {{"A", {1, 1, 1}}, {"R", {1, 0.5, 1}}, {"Z", {5, 3, 9}}};
    uint32_t counts[] = {1, 2};
    std::map<std::string, float *[2]> pixels;
    Imf::Header header(2, 1);
    header.setType(Imf::DEEPSCANLINE);
    header.compression() = Imf::ZIPS_COMPRESSION;
    Imf::DeepFrameBuffer buffer;
    buffer.insertSampleCountSlice(Imf::Slice(Imf::UINT, reinterpret_cast<char *>(counts), 4, 8));
    for (auto &[channel, samples] : channels) {
        header.channels().insert(channel, Imf::Channel(Imf::FLOAT));
        float **first = pixels[channel];
        std::iota(first, first + 2, samples.data());
        buffer.insert(channel,
                      Imf::DeepSlice(Imf::FLOAT, reinterpret_cast<char *>(first), 8, 16, 4));
    }
    Imf::DeepScanLineOutputFile file(name, header);
    file.setFrameBuffer(buffer);
    file.writePixels(1);
}

// A picture of 16320 columns, in a small file: `rows` = 1000 are 49 million samples.
Bytes tall(int rows)
{
    Bytes bytes = colour_header(16320, rows);
    for (int packet = 0; packet < rows * 16320 / 255; ++packet) {
        const auto value = static_cast<uint8_t>(packet);
        bytes.insert(bytes.end(), {255, value, value, value});
    }
    return bytes;
}

// --- Commands and what comes of them ---------------------------------------------------------

// Commands and all that comes of them. What is printed is told whole when that is nothing or ends
// in a line's end, else a part of it is. `files` are the names that are new behind a + and those
// that are gone behind a -; a file that has changed is both.
struct Row {
    const char *given = ""; // what is done to the samples before
    const char *shell = "";
    const char *vorla = ""; // the arguments when the program ends the command
    int exit = 0;
    const char *out = "";
    const char *err = "";
    const char *files = "";
};

struct Outcome {
    int code = -1; // of the exit, or -1 after a signal
    std::string out, err;
};

testing::AssertionResult is_printed(const std::string &came, const std::string &expected)
{
    const bool whole = expected.empty() || expected.back() == '\n';
    return (whole ? came == expected : came.find(expected) != std::string::npos)
               ? testing::AssertionSuccess()
               : testing::AssertionFailure() << "expected: " << expected << "\ncame: " << came;
}

// `begun N` waits until N outputs have been begun, `interrupt SIGNAL N` sends a signal then, and
// `limited N` lets no file grow beyond N blocks of 512 bytes, nor spoil those of a coverage build.
const std::string SHELL_FUNCTIONS =
    "export TMPDIR=../tmp ASAN_OPTIONS=exitcode=99:quarantine_size_mb=1 PATH='" +
    fs::path(VORLA_PATH).parent_path().string() +
    "':\"$PATH\"\n"
    "begun() { for i in $(seq 3000); do [ $(ls -d ../*/.vorla-* | wc -l) -ge $1 ] && break; done; "
    "}\n"
    "interrupt() { s=$1 n=$2; shift 2; env --default-signal=$s vorla \"$@\" & begun $n 2>&-; "
    "kill -$s $!; { wait $!; } 2>&-; }\n"
    "limited() { (ulimit -f $1; shift; GCOV_PREFIX=/dev/null vorla \"$@\" 2>&1) | cat; }\n";

class VorlaTest : public ModuleTest {
  protected:
    // Pictures lie in "r", which is the current directory of every command, and what has been
    // exported of them in "x".
    void SetUp() override
    {
        ModuleTest::SetUp();
        const Bytes row = hex("02FF8000 02000102");
        const Bytes header = colour_header(4, 2);
        const Bytes matte = colour_header(4, 2, 8);
        const Bytes depths = hex("00000001 05F5E100 7FFFFFFF 01000001");
        make("r/a", header + row + hex("04102030"));
        make("mask/a", matte + hex("04FF 01000380"));
        make("depth/a", depth_header(4, 2) + depths + depths);
        for (const char *plain : {"r/c", "r/-x.pix", "r/n\xC3\xA4h \xE9\x9B\xAA.pix"}) {
            make(plain, header + row + row);
        }
        make("r/m", matte + hex("04FF 02000280"));
        make("r/d", header + row + row);
        make("mask/d", colour_header(3, 2, 8) + hex("03FF 03FF")); // too narrow
        make("depth/d", depth_header(4, 2, 55655) + hex("4CBEBC20") + Bytes(28));
        make("r/cut", header + row + hex("01"));
        make("r/f.pix.e", colour_header(4, 1) + row);
        make("r/f.pix.o", colour_header(4, 1) + row);
        make("r/text", Bytes(40, 'x'));
        for (const char *folder : {"tmp", "x", "b", "b/r"}) {
            fs::create_directory(path(folder));
        }
        fs::current_path(path("r"));
        good("vorla export -q --to png --depth-picture ../x/z.png a ../x");
        good("vorla export --to png c m ../x; vorla export --to exr a c m ../x");
    }

    Outcome run(const std::string &command) const
    {
        const std::string line =
            SHELL_FUNCTIONS + "{ " + command + "\n} </dev/null >../out 2>../err";
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
        const Outcome came = run(command);
        EXPECT_EQ(came.code, 0) << command << "\n" << came.err;
        EXPECT_EQ(came.err, "") << command;
    }

    // Checks each row in a fresh copy of the samples.
    void check(std::span<const Row> rows)
    {
        const std::string samples = directory;
        for (const Row &row : rows) {
            const std::string command =
                row.shell + std::string(*row.vorla ? "vorla " : "") + row.vorla;
            SCOPED_TRACE(row.given + ("\n" + command));
            directory = samples + "-row";
            fs::copy(samples, directory, fs::copy_options::recursive);
            fs::current_path(path("r"));
            good(std::string(row.given) + "\n:");
            const Tree before = everything();
            const Outcome came = run(command);
            EXPECT_EQ(came.code, row.exit) << came.err;
            EXPECT_TRUE(is_printed(came.out, row.out));
            EXPECT_TRUE(is_printed(came.err, row.err));
            EXPECT_EQ(changes(before, everything()), row.files);
            fs::remove_all(directory);
        }
        directory = samples;
    }

  private:
    using Tree = std::set<std::pair<std::string, Bytes>>; // names, and what small files hold

    Tree everything() const
    {
        Tree tree;
        for (const auto &entry : fs::recursive_directory_iterator(directory)) {
            const std::string name = entry.path().lexically_relative(directory);
            std::error_code loop;
            const bool small = entry.is_regular_file(loop) && entry.file_size() < 10000;
            tree.emplace(name, small ? contents(name) : Bytes());
        }
        return tree;
    }

    static std::string changes(const Tree &before, const Tree &after)
    {
        std::string text;
        for (const auto &entry : after) {
            text += before.count(entry) == 0 ? " +" + entry.first : "";
        }
        for (const auto &entry : before) {
            text += after.count(entry) == 0 ? " -" + entry.first : "";
        }
        return text.substr(text.empty() ? 0 : 1);
    }
};

} // namespace

// --- Tables ----------------------------------------------------------------------------------

static const Row LOOKS[] = {
    {.vorla = "info näh*", .out = "näh 雪.pix"},
    {.vorla = "info d", .exit = 1, .out = "dropped   the matte ../mask/d is 3 x 2"},
    {.vorla = "info --json d", .exit = 1, .out = "\"depth_kind\":\"float\""},
    {.shell = "cat a | vorla info -", .out = "4 x 2"},
    {.shell = "cat a | TMPDIR=no vorla info -", .exit = 3, .err = "make a temporary file: No"},
    {.vorla = "info text no a", .exit = 3, .out = "a: 4 x 2", .err = "vorla: no: "},
    {.vorla = "info --json no", .exit = 3, .out = "\"error\":\"cannot open:", .err = "no"},
    {.given = "cp c $(printf '\\377')", .vorla = "info --json [!a-z]", .out = "bytes\":\"ff"},
    {.shell = "cd /; KV_IMG_DIR=$OLDPWD vorla info --search a", .out = "4 x 2"},
    {.vorla = "info ../depth/a", .exit = 1, .err = "the depth file of a picture"},
    {.vorla = "info ../x/a.exr", .exit = 1, .err = "it is an OpenEXR file"},
    {.given = "mkfifo p", .vorla = "info p", .exit = 3, .err = "use the name -"},
    {.vorla = "probe a m", .out = "m: PIX"},
    {.vorla = "probe a text", .exit = 1, .out = "text: not PIX"},
    {.shell = "cat a | vorla probe -", .out = "standard input: PIX\n"},
    {.given = "rm f.pix.o", .vorla = "probe f.pix", .exit = 3, .err = "f.pix.o: "},
    {.vorla = "module", .out = ".pix"},
    {.vorla = "module --module no.so", .exit = 4, .err = "vorla: ./no.so: "},
    {.shell = "VORLA_MODULE=/dev/null vorla probe a", .exit = 4, .err = "vorla: /dev/null: "},
    {.vorla = "info a >/dev/full", .exit = 3, .err = "No space left on device"},
    {.shell = "vorla", .exit = 2, .err = "verify"},
    {.vorla = "help", .out = "verify"},
    {.vorla = "info --wrong a", .exit = 2, .err = "--wrong"},
    {.vorla = "info --channels grey a", .exit = 2, .err = "grey"},
    {.vorla = "info ''", .exit = 2, .err = "the name is empty"},
    {.vorla = "verify a", .out = "a: ok (2 rows; colour, matte, depth)\n"},
    {.vorla = "verify --channels rgb a", .out = "a: ok (2 rows; colour)\n"},
    {.vorla = "verify -q a cut", .exit = 1, .out = "cut: cannot read scanline 0: the "},
    {.vorla = "verify -j 1 cut c", .exit = 1, .out = " the file ends too early\nc: ok"},
    {.vorla = "verify -j 3 cut no c", .exit = 3, .out = "too early\nc: ok", .err = "vorla: no: "},
    {.vorla = "verify f.pix.e ./f.pix.o", .out = "f.pix.e: ok (2 rows; colour)\n"},
    {.given = "echo >s; cp m ../mask/s", .vorla = "verify -r ..", .exit = 1, .out = "/s: "},
    {.given = "cp c ../tmp/.vorla-1-1.tmp", .vorla = "verify -r ../tmp", .err = "no PIX files"},
    {.vorla = "verify .", .exit = 3, .err = "directory"},
    {.shell = "cd ../tmp; vorla verify ../r/a", .out = "colour, matte, depth"},
    {.given = "mkdir ../mask/c", .vorla = "verify c", .exit = 3, .err = "--channels rgb opens"},
    {.given = ":>../mask/c", .vorla = "verify c", .exit = 1, .out = "within its header"},
    {.given = "cp c ../mask", .vorla = "verify c", .exit = 1, .out = "has 24 bits a pixel"},
    {.given = "cp c ../depth", .vorla = "verify c", .exit = 1, .out = "not with 56655"},
    {.given = "printf '@%07d\\0\\30%06d' 0 0 >e",
     .vorla = "info e",
     .exit = 1,
     .err = "than 16383"},
    {.given = "cp c f.pix.o", .vorla = "verify f.pix", .exit = 1, .out = "and f.pix.o, 4 x 2"},
    {.given = "truncate -s 12 f.pix.o", .vorla = "verify f.pix", .exit = 1, .out = "f.pix.o ends"},
    {.given = ":>../tmp/e.pix", .vorla = "verify -r ../tmp", .exit = 1, .out = "within its header"},
    {.given = "rm f.pix.o", .vorla = "verify f.pix", .exit = 3, .err = "the field f.pix.o"},
    {.given = "mkdir ../depth/c", .vorla = "info c", .exit = 3, .err = "--channels rgb"},
    {.given = "rm f.pix.o; mkdir f.pix.o",
     .vorla = "info f.pix",
     .exit = 3,
     .err = "read the field"},
    {.given = "ln -s no ../depth/c", .vorla = "verify c", .exit = 3, .err = "/c cannot be read"},
    {.given = "rm -r ../mask; ln -s mask ../mask", .vorla = "verify a", .exit = 3, .err = "mask"},
    {.given = "ln -s $PWD/a ../b/r", .vorla = "verify ../b/r/a", .exit = 1, .out = "link leads to"},
    {.given = "printf %1000s >>c", .vorla = "verify c", .exit = 1, .out = "c: 1000 bytes"},
    {.given = "echo >>../depth/a", .vorla = "verify a", .exit = 1, .out = "row of ../depth/a"},
    {.given = "printf %3s >>f.pix.o", .vorla = "verify f.pix", .exit = 1, .out = "row of f.pix.o"},
    {.given = "truncate -s13 ../mask/a", .vorla = "verify a", .exit = 1, .out = "../mask/a ends"},
    {.given = "sed -i 's/\\x3/\\x5/' ../mask/a", .vorla = "verify a", .exit = 1, .out = "/a add"},
    {.given = "truncate -s30 ../depth/a", .vorla = "verify a", .exit = 1, .out = "/depth/a ends"},
    {.vorla = "verify a >&-", .exit = 3, .err = "Bad file descriptor"},
    {.shell = "script -qc 'stty cols 12; (sleep 0.6; cat c) | vorla verify a - c' p; rm p",
     .out = "\rvorla: 2 of\033[K\r\033[K"},
};

TEST_F(VorlaTest, InfoAndVerifySayWhatIsWrongAndInWhichFile)
{
    check(LOOKS);
}

static const Row EXPORTS[] = {
    {.shell = "vorla export a - | cat", .out = "PNG"},
    {.shell = "vorla export cut - | wc -c", .out = "0\n", .err = "the file ends too early"},
    {.shell = "cat m | vorla export - m.png; cmp m.png ../x/m.png", .files = "+r/m.png"},
    {.vorla = "export --depth-picture z.png a e.png", .err = "1 (w", .files = "+r/e.png +r/z.png"},
    {.vorla = "export --to png a c ../tmp", .files = "+tmp/a.png +tmp/c.png"},
    {.vorla = "export --to png f.pix.e ../r/f.pix.o f.pix ../tmp", .files = "+tmp/f.png"},
    {.vorla = "export --to png a cut no ../tmp", .exit = 3, .err = "cut: ", .files = "+tmp/a.png"},
    {.vorla = "export --to png a cp/a ../tmp", .exit = 2, .err = "is made of a"},
    {.vorla = "export --partial cut e.png", .exit = 1, .err = "1 of 2 rows", .files = "+r/e.png"},
    {.vorla = "export d d.png", .exit = 1, .err = "it is left out", .files = "+r/d.png"},
    {.given = "ln -s ../r ../b/n", .vorla = "info ../b/n/a", .exit = 1, .out = "mask/a stands"},
    {.vorla = "export a m.pix", .exit = 2, .err = "vorla: m.pix: "},
    {.vorla = "export --to png a ../x", .exit = 3, .err = "x/a.png: cannot write: exists; -f"},
    {.shell = "chmod 600 ../x/a.png; vorla export -f c ../x/a.png; stat -c %a ../x/a.png",
     .out = "600\n",
     .files = "+x/a.png -x/a.png"},
    {.vorla = "export --skip-existing --to png c -- -x.pix ../x", .files = "+x/-x.png"},
    {.vorla = "export --skip-existing c ../x/a.png"},
    {.vorla = "export -f --to png c ../r/c", .exit = 2, .err = "the picture itself"},
    {.given = "ln -s c l", .vorla = "export -f --to png a l", .files = "+r/l -r/l"},
    {.vorla = "export a ../b/e.png --depth-picture ../b/./e.png", .exit = 2, .err = "be both"},
    {.vorla = "export --to png a . --depth-picture a.png", .exit = 2, .err = "be both"},
    {.vorla = "export c a.png --depth-picture z.png", .exit = 2, .err = "has none"},
    {.vorla = "export --to png a c ../tmp --depth-picture z", .exit = 2, .err = "one picture"},
    {.vorla = "export --to png a /dev/stdout >&-", .exit = 3, .err = "standard output: "},
    {.vorla = "export a a/a.png", .exit = 3, .err = "vorla: a/a.png: "},
    {.vorla = "export a b.png --depth-picture a/z.png", .exit = 3, .err = "a/z.png: "},
    {.vorla = "export -q a $(printf %300s | tr ' ' n).png --depth-picture z.png",
     .exit = 3,
     .err = "cannot give the file its name (z.png is the new one): File name too long",
     .files = "+r/z.png"},
    {.given = "mkfifo ../p",
     .shell = "vorla export a a.png --depth-picture ../p & begun 1 2>&-; echo mine >a.png; "
              "cat ../p >/dev/null; wait $! || cat a.png",
     .out = "mine\n",
     .err = "vorla: a.png: cannot give the file its name: File exists\n",
     .files = "+r/a.png"},
    {.vorla = "export --linear a a.png", .exit = 2, .err = "OpenEXR"},
    {.vorla = "export --level 1 a a.exr", .exit = 2, .err = "--level is for PNG"},
    {.vorla = "export a a.tga", .exit = 2, .err = "a.tga"},
    {.vorla = "export a c ../tmp", .exit = 2, .err = "--to"},
    {.vorla = "export a", .exit = 2, .err = "OUT is missing"},
    {.vorla = "export --to exr a -", .exit = 2, .err = "only PNG"},
    {.vorla = "export --to png - ../tmp <a", .exit = 2, .err = "it has no name"},
    {.vorla = "export a - >/dev/full", .exit = 3, .err = "No space left on device"},
    {.shell = "limited 0 export a a.png", .out = "File too large"},
    {.shell = "limited 0 export a a.exr", .out = "File too large"},
};

TEST_F(VorlaTest, ExportMakesWholePicturesOrNone)
{
    check(EXPORTS);
}

static const Row IMPORTS[] = {
    {.vorla = "import text b", .exit = 1, .err = "text: cannot import: it begins like"},
    {.vorla = "import c b", .exit = 1, .err = "is PIX already"},
    {.vorla = "import ../x/c.png b.7e", .exit = 2, .err = "field"},
    {.vorla = "import ../x/c.png f.pix", .exit = 3, .err = "f.pix.e"},
    {.vorla = "import ../x/c.png b.png", .exit = 2, .err = "the name ends in .png"},
    {.vorla = "import ../x/c.png /dev/stdout", .exit = 2, .err = "files, which need names"},
    {.vorla = "import ../x/c.png ../mask/b", .exit = 2, .err = "be its own companion"},
    {.shell = "cat ../x/c.png | vorla import - b; cmp b c", .files = "+r/b"},
    {.given = "cp ../x/c.png x.exr", .vorla = "import x.exr b", .files = "+r/b"},
    {.given = "cp ../x/c.png b", .vorla = "import -f b ./b", .exit = 2, .err = "to import"},
    {.given = "cp ../x/c.png ../mask/b", .vorla = "import -f ../mask/b b", .exit = 2, .err = "it "},
    {.vorla = "import a.png b.png out", .exit = 2, .err = "one IN and one OUT"},
    {.vorla = "import -j 2 ../x/[ac].exr ../b/r",
     .files = "+b/depth +b/depth/a.pix +b/mask +b/mask/a.pix +b/r/a.pix +b/r/c.pix"},
    {.given = "ln -s ../b/r ../tmp/r",
     .vorla = "import ../x/a.exr ../tmp/r/b",
     .err = "the directory is a link",
     .files = "+b/depth +b/depth/b +b/mask +b/mask/b +b/r/b"},
    {.vorla = "import ../x/a.exr c", .exit = 3, .err = "c: cannot write: exists; -f"},
    {.given = "cp m ../mask/e", .vorla = "import ../x/c.png e", .exit = 3, .err = "mask/e: cannot"},
    {.vorla = "import --skip-existing ../x/a.exr c"},
    {.vorla = "import -f ../x/c.png a", .files = "+r/a -depth/a -mask/a -r/a"},
    {.vorla = "import --channels rgb ../x/a.exr b", .files = "+r/b"},
    {.vorla = "import --channels matte ../x/a.exr b", .files = "+mask/b +r/b"},
    {.given = "mkdir ../mask/b", .vorla = "import -f ../x/c.png b", .exit = 3, .err = "Is a dir"},
    {.given = ":>../b/mask", .vorla = "import ../x/a.exr ../b/r/b", .exit = 3, .err = "../b/mask"},
    {.vorla = "import --matte ../x/a.png b", .exit = 2, .err = "is not plain grey"},
    {.vorla = "import --linear ../x/a.png b", .exit = 2, .err = "are for OpenEXR"},
    {.vorla = "import ../x/z.png b", .err = "samples of 16 bits", .files = "+r/b"},
    {.vorla = "import ../x/depth.exr b", .exit = 1, .err = "depth alone could not be read again"},
    {.vorla = "import ../x/matte.exr b", .exit = 1, .err = "no depth beside a matte"},
    {.vorla = "import ../x/other.exr b", .exit = 1, .err = "there is no channel R, G, B, Y or A"},
    {.vorla = "import ../x/wide.exr b", .exit = 1, .err = "the picture has 16384 x 1 pixels"},
};

TEST_F(VorlaTest, ImportMakesWholeSetsOrNothing)
{
    make_exr("../x/depth.exr", {{0, 0}, {0, 0}}, {{"Z", {1}}});
    make_exr("../x/matte.exr", {{0, 0}, {0, 0}}, {{"A", {1}}, {"Z", {1}}});
    make_exr("../x/other.exr", {{0, 0}, {0, 0}}, {{"U", {1}}});
    make_exr("../x/wide.exr", {{1, 0}, {16384, 0}}, {{"R", std::vector<float>(16384)}});
    check(IMPORTS);
}

// The tall pictures take long; the companions of the noise are longer than the limit.
static const Row BROKEN_OFF[] = {
    {.shell = "interrupt INT 1 export tall tall.png", .exit = 130},
    {.shell = "interrupt HUP 1 export tall tall.exr", .exit = 129},
    {.shell = "interrupt TERM 1 import ../x/tall.exr b", .exit = 143},
    {.shell = "interrupt INT 2 export -j 2 --to png tall again ../tmp", .exit = 130},
    {.shell = "interrupt TERM 2 import -j 2 ../x/tall.exr ../x/again.exr ../tmp", .exit = 143},
    {.shell = "vorla export -j 2 --to png tall c ../tmp & until [ -e ../tmp/c.png ] && "
              "t=$(ls ../tmp/.vorla*); do :; done 2>&-; t=${t#*vorla-}; kill -9 ${t%%-*}; "
              "wait $!; c=$?; rm ../tmp/.v*; (exit $c)",
     .exit = 3,
     .err = "vorla: tall: the process for the picture was ended: Killed\n",
     .files = "+tmp/c.png"},
    {.shell = "limited 8 import ../x/noise.exr ../b/r/b",
     .out = "Cannot write to ../b/depth/b; File"},
};

TEST_F(VorlaTest, WhatIsBrokenOffLeavesNothing)
{
    make("r/tall", tall(5000));
    make_exr("../x/tall.exr", {{0, 0}, {16319, 2999}}, {{"R", std::vector<float>(16320)}});
    good("cp tall again; cp ../x/tall.exr ../x/again.exr");
    std::vector<float> noise(10000);
    std::iota(noise.begin(), noise.end(), 0.0F);
    make_exr("../x/noise.exr", {{0, 0}, {99, 99}}, {{"A", noise}, {"R", noise}, {"Z", noise}});
    check(BROKEN_OFF);
}

TEST_F(VorlaTest, AMatteThatMayNotBeReadIsNamed)
{
    const std::string other = "setpriv --reuid=65534 --regid=65534 --clear-groups vorla ";
    fs::permissions(directory, fs::perms(0755));
    if (run(other + "info c").code != 0) {
        GTEST_SKIP() << "only root can be another user, who must be let to the program";
    }
    fs::permissions(path("mask"), fs::perms(0700));
    EXPECT_EQ(run(other + "info a").code, 3);
    EXPECT_TRUE(is_printed(run(other + "info a").err, "mask/a cannot be read: Permission denied"));
    EXPECT_TRUE(is_printed(run(other + "verify -r ..").err, "cannot read the directory: Perm"));
}

// --- Single cases ----------------------------------------------------------------------------

// The lines are run as file managers and shells would run them.
TEST_F(VorlaTest, FileManagersAndShellsGetWhatTheyLookFor)
{
    good("mkdir -p ../s/packages; cp " DESKTOP_PATH "/vorla.xml ../s/packages; "
         "update-mime-database ../s 2>../tmp/e; grep -q 'image/x-vorla-pix:[*].pix' ../s/globs2");
    good("touch t; line=$(sed -n 's/^Exec=//p' " DESKTOP_PATH "/vorla.thumbnailer | "
         "sed 's/%s/2/; s/%i/a/; s/%o/t/'); eval \"$line\"");
    EXPECT_EQ(rgba("t"), hex("185088A0 191108C0"));
    good("bash -c '. " DESKTOP_PATH "/vorla.bash; COMP_WORDS=(vorla export --si) COMP_CWORD=2; "
         "_vorla; test \"${COMPREPLY[*]}\" = --size'");
}

TEST_F(VorlaTest, PicturesHoldTheSamplesAndComeBackAsTheyWere)
{
    EXPECT_EQ(rgba("../x/a.png"), hex("0080FFFF 0080FFFF 020100FF 020100FF"
                                      "30201000 30201080 30201080 30201080"));
    good("vorla export --size 2 --level 9 a s.png"); // the mean of all rows, two columns
    EXPECT_EQ(rgba("s.png"), hex("185088A0 191108C0"));
    good("! command -v pngcheck >../tmp/found || pngcheck -q ../x/*.png");
    good("! command -v exrheader >../tmp/found || exrheader ../x/a.exr | grep -q 'A, 16-bit'");
    good("for t in png exr; do for n in a m c; do [ $n = m ] && o=--matte || o=; "
         "vorla import -f $o ../x/$n.$t ../b/r/$n && vorla export -f ../b/r/$n 2.$t && "
         "cmp 2.$t ../x/$n.$t && cmp $n ../b/r/$n || exit; done; cmp ../mask/a ../b/mask/a && "
         "[ $t = exr -o ! -e ../b/depth ] || exit; done; cmp ../depth/a ../b/depth/a");
    good("vorla export -q --linear --depth float a 3.exr && ! cmp -s 3.exr ../x/a.exr && "
         "vorla import -q --linear 3.exr ../b/r/l && cmp a ../b/r/l");
    const Bytes depths = hex("00000001 05F5E100 7FFFFFFF 01000000"); // 24 bits of the last
    EXPECT_EQ(contents("b/depth/l"), depth_header(4, 2) + depths + depths);
}

// The PNG is interlaced; its rows are 010203 010203 0A0B0C and F0F1F2 FFFEFD FFFEFD.
TEST_F(VorlaTest, PicturesOfOtherProgramsAreImported)
{
    const Bytes png = hex("89504E470D0A1A0A0000000D49484452000000030000000208020000016511C1DB000000"
                          "1F4944415408996360646266E0E2E66160646266F8F0F1D3FF7F7FFFFFFB0B002E5008F5"
                          "1D2953140000000049454E44AE426082");
    make("r/i.png", png);
    good("vorla import i.png i");
    EXPECT_EQ(contents("r/i"), colour_header(3, 2) + hex("02030201 010C0B0A 01F2F1F0 02FDFEFF"));
    make_exr("y.exr", {{-5, 7}, {-4, 8}}, {{"Y", {0, 1, 2, -1}}}); // the last two are clamped
    EXPECT_EQ(run("vorla import y.exr y && vorla import -q --matte y.exr ym").err,
              "vorla: y.exr: 2 of 4 samples outside 0 to 1 clamped\n");
    EXPECT_EQ(contents("r/y"), colour_header(2, 2) + hex("01000000 01FFFFFF 01FFFFFF 01000000"));
    EXPECT_EQ(contents("r/ym"), colour_header(2, 2, 8) + hex("0100 01FF 01FF 0100"));
    make_deep_exr("deep.exr");
    EXPECT_TRUE(is_printed(run("vorla import deep.exr deep").err, "deep samples are flattened"));
    EXPECT_EQ(contents("r/deep"), colour_header(2, 1) + hex("010000FF 01000080"));
    EXPECT_EQ(contents("depth/deep"), Bytes());
}

TEST_F(VorlaTest, ImportSaysWhatItChanges)
{
    const std::vector<float> red = {0, 0.5, NAN, 2};
    make_exr("n.exr", {{-1, 0}, {0, 1}},
             {{"R", red}, {"G", red}, {"Z", {0.25, 3e9, INFINITY, -1}}, {"fog.R", red}}, 2);
    EXPECT_EQ(run("vorla import n.exr n").err, R"(vorla: n.exr: only the first of 2 parts is taken
vorla: n.exr: left out: fog.R
vorla: n.exr: there is no channel B; it is black
vorla: n.exr: the data window, 2 x 2 at -1, 0, is taken, not the display window, 8 x 8 at 0, 0
vorla: n.exr: 4 of 8 samples outside 0 to 1 clamped
vorla: n.exr: 1 of 4 depths rounded to whole numbers; --depth-scale multiplies them first
vorla: n.exr: 2 of 4 depths outside 0 to 2147483647 clamped
vorla: n.exr: 1 of 4 depths that are infinite or no numbers made 100000000
)");
    EXPECT_EQ(contents("depth/n"), depth_header(2, 2) + hex("00000000 7FFFFFFF 05F5E100 00000000"));
    good("vorla import -qf --depth-scale 100 n.exr n");
    EXPECT_EQ(contents("depth/n"), depth_header(2, 2) + hex("00000019 7FFFFFFF 05F5E100 00000000"));
}

// Rows 1 and 2 of five cannot be decoded; behind them the rows are found again.
TEST_F(VorlaTest, RowsBehindDamagedOnesAreFoundAgain)
{
    const Bytes bad = hex("05050505");
    const Bytes good_row = hex("04102030");
    make("r/p", colour_header(4, 5) + good_row + bad + bad + good_row + good_row);
    make("r/q", colour_header(4, 3) + bad + bad + good_row);
    const Outcome came = run("vorla export --partial p q --to png .");
    EXPECT_TRUE(is_printed(came.err, "p: 2 of 5 rows cannot be read and are black, and"));
    EXPECT_TRUE(is_printed(came.err, "q: 2 of 3 rows cannot be read and are black, and"));
    const Bytes black = hex("000000FF 000000FF 000000FF 000000FF");
    const Bytes seen = hex("302010FF 302010FF 302010FF 302010FF");
    EXPECT_EQ(rgba("p.png"), seen + black + black + seen + seen);
    EXPECT_EQ(rgba("q.png"), black + black + seen);
}

// Cut ones in one run, and in another those with a byte flipped, of which not all are checked.
TEST_F(VorlaTest, DamagedPicturesAreRefused)
{
    for (const std::string type : {".png", ".exr"}) {
        const Bytes whole = contents("x/a" + type);
        const size_t step = 1 + whole.size() / 60;
        for (size_t at = 0; at < whole.size(); at += step) {
            Bytes damaged = whole;
            damaged[at] ^= 0xFF;
            make("flipped/" + std::to_string(at) + type, damaged);
            damaged.resize(at);
            make("cut/" + std::to_string(at) + type, damaged);
        }
        const Outcome cut = run("vorla import -j 1 ../cut/*" + type + " ../b/r");
        for (size_t at = 0; at < whole.size(); at += step) {
            EXPECT_TRUE(is_printed(cut.err, "vorla: ../cut/" + std::to_string(at) + type + ": "));
        }
        EXPECT_TRUE(fs::is_empty("../b/r")) << *fs::directory_iterator("../b/r");
        const Outcome flipped = run("vorla import -j 1 ../flipped/*" + type + " ../tmp");
        EXPECT_TRUE(flipped.code == 1 || flipped.code == 3) << flipped.code << flipped.err;
        EXPECT_EQ(run("ls -A ../tmp | grep vorla").out, "");
    }
}

TEST_F(VorlaTest, MemoryDoesNotGrowWithThePicture)
{
    long most[2] = {}; // KiB
    for (const bool large : {false, true}) {
        make("r/p", tall(large ? 400 : 20)); // 20 million samples
        good("vorla export -f --level 1 p 1.png && vorla import -f 1.png p && "
             "vorla export -f p 1.exr && vorla import -f 1.exr p && vorla verify -q p");
        EXPECT_TRUE(contents("r/p") == tall(large ? 400 : 20)) << "the samples differ";
        rusage usage = {};
        getrusage(RUSAGE_CHILDREN, &usage);
        most[large] = usage.ru_maxrss;
    }
    EXPECT_LT(most[1], most[0] + 10 * 1024L);
}
