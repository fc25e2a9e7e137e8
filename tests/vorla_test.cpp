// The built program, run through the shell as people run it, in a directory of sample sets: what it
// prints, how it exits, which files it leaves, and what comes back from a round trip.
#include "tests/support.h"

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfOutputFile.h>
#include <png.h>
#include <sys/resource.h>

#include <cmath>
#include <filesystem>
#include <span>

namespace {

// --- Pictures of other programs --------------------------------------------------------------

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

// Writes an OpenEXR file in which all rows are alike, with a display window of 8 x 8 pixels.
void make_exr(const std::string &name, const Imath::Box2i &window,
              const std::map<std::string, std::vector<float>> &channels)
{
    Imf::Header header({{0, 0}, {7, 7}}, window);
    header.compression() = Imf::RLE_COMPRESSION;
    Imf::FrameBuffer buffer;
    for (const auto &[channel, row] : channels) {
        char *column_0 = reinterpret_cast<char *>(const_cast<float *>(row.data() - window.min.x));
        header.channels().insert(channel, Imf::Channel(Imf::FLOAT));
        buffer.insert(channel, Imf::Slice(Imf::FLOAT, column_0, sizeof(float), 0));
    }
    Imf::OutputFile file(name.c_str(), header);
    file.setFrameBuffer(buffer);
    file.writePixels(window.max.y - window.min.y + 1);
}

// --- Commands and what comes of them ---------------------------------------------------------

// Commands, of which `run` is tried, and all that comes of it.
struct Row {
    const char *given = ""; // what is done to the samples before
    const char *run;
    int exit = 0;
    const char *says = "^$"; // a part of what is printed, which stands between ^ and $
    const char *files = "";  // that are new (+), gone (-) or changed (!)
};

class VorlaTest : public ModuleTest {
  protected:
    // Pictures lie in "r", which is the current directory of every command, and what has been
    // exported of them in "x".
    void SetUp() override
    {
        ModuleTest::SetUp();
        const Bytes row = hex("02FF8000 02000102");
        const Bytes depths = hex("00000001 05F5E100 7FFFFFFF 01000001");
        make("r/a", colour_header(4, 2) + row + hex("04102030"));
        make("mask/a", colour_header(4, 2, 8) + hex("04FF 01000380"));
        make("depth/a", depth_header(4, 2) + depths + depths);
        make("r/c", colour_header(4, 2) + row + row);
        make("r/m", colour_header(4, 2, 8) + hex("04FF 02000280"));
        make("mask/d", colour_header(3, 2, 8) + hex("03FF 03FF")); // too narrow
        std::filesystem::current_path(path("r"));
        ASSERT_EQ(run(R"(mkdir -p ../tmp ../x ../b/r
cp c d; head -c 19 c >cut; cp c f.pix.e; cp c f.pix.o
vorla export -q --to png --depth-picture ../x/z.png a ../x; chmod 604 ../x/a.png
vorla export --to png c m ../x; vorla export --to exr a c m ../x; cp ../x/c.png i)"),
                  "");
    }

    // Runs commands, and returns what they print, and their exit status unless that is 0.
    std::string run(const std::string &commands) const
    {
        const char *start = "export TESTS='" TESTS_PATH "' PATH='" VORLA_FOLDER "':\"$PATH\"\n"
                            ". \"$TESTS/vorla.sh\"\n";
        (void)std::system((start + commands).c_str());
        const Bytes said = contents("said");
        return {said.begin(), said.end()};
    }

    void check(std::span<const Row> rows) const
    {
        for (const Row &row : rows) {
            SCOPED_TRACE(testing::Message() << row.given << "\n" << row.run);
            setenv("GIVEN", row.given, 1);
            setenv("RUN", row.run, 1);
            const std::string came = run("check");
            EXPECT_PRED_FORMAT2(testing::IsSubstring, row.says, came);
            const testing::Message end = testing::Message() << "$" << row.exit << " " << row.files;
            EXPECT_PRED_FORMAT2(testing::IsSubstring, end.GetString() + "\n", came);
        }
    }
};

} // namespace

// --- Tables ----------------------------------------------------------------------------------

static const Row LOOKS[] = {
    {.run = "vorla info a d || vorla info --json ../depth/a", .exit = 1, .says = "is a depth file"},
    {.run = "vorla info a >/dev/full || vorla info a >&-", .exit = 3, .says = "Bad file desc"},
    {.run = "cat a | TMPDIR=no vorla info - || : | vorla info /dev/fd/0", .exit = 3, .says = "use"},
    {.run = "cat a | vorla probe - f.pix ../x/c.png", .exit = 1, .says = "PIX\n../x/c.png: not"},
    {.run = "vorla module && vorla probe --module no.so a", .exit = 4, .says = "vorla: ./no.so: "},
    {.run = "vorla verify f.pix.e m ./f.pix.o", .says = "^f.pix.e: ok (4 rows; colour)\nm: ok (2 "},
    {.run = "cd /; KV_IMG_DIR=$OLDPWD vorla verify --search a", .says = "colour, matte, depth"},
    {.run = "vorla verify -j1 cut c || vorla verify -j3 cut no c", .exit = 3, .says = "early\nv"},
    {.given = "echo >>../depth/a", .run = "vorla verify a", .exit = 1, .says = "row of ../depth/a"},
    {.given = "sed -i 's/\\x3/\\x5/' ../mask/a", .run = "vorla verify a", .exit = 1, .says = "add"},
    {.given = "ln -s ../../r/a ../b/r", .run = "vorla info ../b/r/a", .exit = 1, .says = "link"},
    {.given = "cp m ../mask/s; :>s", .run = "vorla verify -r ..", .exit = 1, .says = "r/s: not"},
    {.run = "vorla verify . || closed verify -r ..", .exit = 3, .says = "the directory: Permiss"},
};

TEST_F(VorlaTest, InfoAndVerifySayWhatIsWrongAndInWhichFile)
{
    check(LOOKS);
}

static const Row EXPORTS[] = {
    {.run = "vorla export a - | cmp - ../x/a.png && vorla export cut - | wc -c", .says = "y\n0\n$"},
    {.run = "cat m | vorla export - m.png; cmp m.png ../x/m.png", .files = "+r/m.png"},
    {.run = "vorla export --to png f.pix.e ../r/f.pix.o f.pix ../tmp", .files = "+tmp/f.png"},
    {.run = "vorla export --to png a cut ../b", .exit = 1, .says = "cut: ", .files = "+b/a.png"},
    {.run = "vorla export d d.png", .exit = 1, .says = "it is left out", .files = "+r/d.png"},
    {.run = "vorla export --to png a cp/a ../tmp", .exit = 2, .says = "made of a"},
    {.run = "vorla export --to png a ../x", .exit = 3, .says = "x/a.png: cannot write: the file"},
    {.run = "vorla export -f --level 6 c ../x/a.png; cmp ../x/[ac].png", .files = "!x/a.png"},
    {.run = "vorla export -f a ../x/a.png; find .. -perm 604", .says = "^../x/a.png\n$"},
    {.run = "vorla export -f --to png c ../r/c", .exit = 2, .says = "the picture itself"},
    {.given = "ln -s c l", .run = "vorla export -f --to png a l", .files = "!r/l"},
    {.run = "vorla export a ../b/e.png --depth-picture ../b/./e.png", .exit = 2, .says = "be both"},
    {.run = "vorla export a $LONG --depth-picture z", .exit = 3, .says = "z is", .files = "+r/z"},
    {.run = "mkfifo ../p; vorla export a a.png --depth-picture ../p & begun 1; echo mine >a.png; "
            "cat ../p >/dev/null; rm ../p; wait $! || cat a.png",
     .says = "^vorla: a.png: cannot give the file its name: File exists\nmine\n$",
     .files = "+r/a.png"},
    {.run = "vorla export a - >/dev/full || vorla export a - >&-", .exit = 3, .says = "Bad file"},
    {.run = "limited 0 export a a.png", .says = "File too large\nexit 3\n"},
    {.run = "refused 'export a m.pix' 'export a c ../tmp' 'export c e.png --depth-picture z'"},
};

TEST_F(VorlaTest, ExportMakesWholePicturesOrNone)
{
    check(EXPORTS);
}

static const Row IMPORTS[] = {
    {.run = "vorla import c ../depth/a ../b/r", .exit = 1, .says = "it begins like neither"},
    {.run = "refused 'import i b.7e' 'import i b.png' 'import i /dev/stdout' 'import i i b'"},
    {.run = "refused 'import --matte ../x/a.png b' 'import --linear i b' 'import i ../mask/b'"},
    {.given = "cp i ../mask/b", .run = "refused 'import -f i ./i' 'import -f ../mask/b b'"},
    {.run = "vorla import . b", .exit = 3, .says = "Is a directory"},
    {.run = "cat i | vorla import - b; cmp b c", .files = "+r/b"},
    {.run = "vorla import i f.pix", .exit = 3, .says = "there is the field f.pix.e"},
    {.run = "vorla import -j 2 ../x/[cm].exr ../b/r", .files = "+b/r/c.pix +b/r/m.pix"},
    {.given = "ln -s ../b/r ../tmp",
     .run = "vorla import -q ../x/a.exr ../tmp/r/b",
     .files = "+b/depth +b/mask +b/r/b"},
    {.run = "vorla import --skip-existing i c && vorla import i c", .exit = 3, .says = "^vorla: c"},
    {.given = "cp m ../mask/e", .run = "vorla import i e", .exit = 3, .says = "mask/e"},
    {.run = "vorla import -f i a", .files = "-depth/a -mask/a !r/a"},
    {.run = "vorla import --channels matte ../x/a.exr b", .files = "+mask/b +r/b"},
    {.given = "mkdir ../mask/b", .run = "vorla import -f i b", .exit = 3, .says = "Is "},
    {.run = "vorla import -j 1 no-*.exr ../b/r 2>&1 | wc -l", .says = "^4\n$"},
    {.given = "spoil ../x/a.png", .run = "vorla import -j 1 ../s/* ../b/r 2>&-", .exit = 1},
    {.given = "spoil ../x/a.exr", .run = "vorla import -j 1 ../s/cut* ../b/r 2>&-", .exit = 1},
};

TEST_F(VorlaTest, ImportMakesWholeSetsOrNothing)
{
    make_exr("no-colour-1.exr", {{0, 0}, {0, 0}}, {{"Z", {1}}});
    make_exr("no-colour-2.exr", {{0, 0}, {0, 0}}, {{"A", {1}}, {"Z", {1}}});
    make_exr("no-colour-3.exr", {{0, 0}, {0, 0}}, {{"U", {1}}});
    make_exr("no-size.exr", {{1, 0}, {16384, 0}}, {{"R", std::vector<float>(16384)}});
    check(IMPORTS);
}

// It takes long to export and import the tall pictures: long enough to interrupt a command.
static const Row BROKEN_OFF[] = {
    {.run = "interrupt INT 1 export tall tall.png", .exit = 130},
    {.run = "interrupt TERM 1 import tall.exr b", .exit = 143},
    {.given = "cp tall t", .run = "interrupt INT 2 export -j2 --to png t tall ../b", .exit = 130},
    {.given = "cp tall.exr t", .run = "interrupt TERM 2 import -j2 t tall.exr ../b", .exit = 143},
    {.given = "cp tall t",
     .run = "vorla export -j 2 --to png t tall ../tmp & begun 2; "
            "kill -9 $(ls -A ../tmp | cut -d- -f2); wait $!; code=$?; rm ../tmp/.v*; exit $code",
     .exit = 3,
     .says = "vorla: t: the process for the picture was ended: Killed\n"},
    {.run = "limited 0 import ../x/a.exr b", .says = "File too large\nexit 3\n$"},
};

TEST_F(VorlaTest, AnInterruptedCommandLeavesNoFiles)
{
    make_exr("tall.exr", {{0, 0}, {16319, 2999}}, {{"R", std::vector<float>(16320)}});
    make("r/tall", colour_header(16320, 5000) + Bytes(1280000, 255)); // is white
    check(BROKEN_OFF);
}

// --- Single cases ----------------------------------------------------------------------------

// The lines are run as file managers and shells would run them.
TEST_F(VorlaTest, TheMimeTypeTheThumbnailerAndTheCompletionWork)
{
    EXPECT_EQ(run(R"(mkdir -p ../s/packages; cp $DESKTOP/vorla.xml ../s/packages
update-mime-database ../s 2>&-; grep image/x-vorla-pix: ../s/globs2
touch t; eval $(sed -n 's/^Exec=//p' $DESKTOP/vorla.thumbnailer | sed 's/%s/2/; s/%i/a/; s/%o/t/')
bash -c '. $DESKTOP/vorla.bash; COMP_WORDS=(v info --j) COMP_CWORD=2; _vorla; echo $COMPREPLY')"),
              "50:image/x-vorla-pix:*.pix\n--json\n");
    EXPECT_EQ(rgba("t"), hex("185088A0 191108C0")); // the mean of all rows, two columns
}

TEST_F(VorlaTest, PicturesHoldTheSamplesAndComeBackAsTheyWere)
{
    EXPECT_EQ(rgba("../x/a.png"), hex("0080FFFF 0080FFFF 020100FF 020100FF"
                                      "30201000 30201080 30201080 30201080"));
    const Bytes view = hex("FFFFFFFF 000000FF 000000FF 000000FF"); // the nearest depth is white
    EXPECT_EQ(rgba("../x/z.png"), view + view);
    EXPECT_EQ(run(R"(for t in png exr; do for n in a m c; do [ $n = m ] && o=--matte || o=
vorla import -f $o ../x/$n.$t ../b/r/$n; vorla export -f ../b/r/$n 2.$t; cmp 2.$t ../x/$n.$t
cmp $n ../b/r/$n; done; cmp ../mask/a ../b/mask/a; done; cmp ../depth/a ../b/depth/a
vorla export --linear --depth float a 3.exr; vorla import -q --linear 3.exr ../b/r/a2
cmp a ../b/r/a2; vorla import ../x/z.png z)"),
              "vorla: ../x/z.png: samples of 16 bits are reduced to 8\n");
    EXPECT_EQ(contents("r/z"), colour_header(4, 2) + hex("01FFFFFF 03000000 01FFFFFF 03000000"));
    const Bytes depths = hex("00000001 05F5E100 7FFFFFFF 01000000"); // 24 bits of the last
    EXPECT_EQ(contents("b/depth/a2"), depth_header(4, 2) + depths + depths);
}

// The PNG is interlaced; its rows are 010203 010203 0A0B0C and F0F1F2 FFFEFD FFFEFD. The samples of
// the deep picture are one in the first pixel, and two in the second, of which the nearer covers
// all.
TEST_F(VorlaTest, PicturesOfOtherProgramsAreImported)
{
    make_exr("y.exr", {{-5, 7}, {-2, 8}}, {{"Y", {0, 1, 2, -1}}}); // the last two are clamped
    const std::vector<float> red = {0, 0.5, NAN, 2};
    make_exr("n.exr", {{-1, 0}, {2, 0}},
             {{"R", red}, {"G", red}, {"Z", {0.25, 3e9, INFINITY, -1}}, {"fog.R", red}});
    EXPECT_EQ(run(R"(vorla import $TESTS/interlaced.png p; vorla import -q y.exr y
vorla import -q --matte y.exr ym
cp $TESTS/deep.exr .; vorla import deep.exr deep 2>&1 | head -1; vorla import n.exr n
vorla import -qf --linear --depth-scale 100 n.exr n)"),
              R"(vorla: deep.exr: deep samples are flattened
vorla: n.exr: left out: fog.R
vorla: n.exr: there is no channel B; it is black
vorla: n.exr: the data window, 4 x 1 at -1, 0, is taken, not the display window, 8 x 8 at 0, 0
vorla: n.exr: 4 of 8 samples outside 0 to 1 clamped
vorla: n.exr: 1 of 4 depths rounded to whole numbers; --depth-scale multiplies them first
vorla: n.exr: 2 of 4 depths outside 0 to 2147483647 clamped
vorla: n.exr: 1 of 4 depths that are infinite or no numbers made 100000000
)");
    const Bytes y = hex("01000000 02FFFFFF 01000000");
    EXPECT_EQ(contents("r/p"), colour_header(3, 2) + hex("02030201 010C0B0A 01F2F1F0 02FDFEFF"));
    EXPECT_EQ(contents("r/y"), colour_header(4, 2) + y + y);
    EXPECT_EQ(contents("r/ym"), colour_header(4, 2, 8) + hex("0100 02FF 0100 0100 02FF 0100"));
    EXPECT_EQ(contents("r/deep"), colour_header(2, 1) + hex("010000FF 01000080"));
    EXPECT_EQ(contents("depth/deep"), Bytes());
    EXPECT_EQ(contents("r/n"), colour_header(4, 1) + hex("01000000 0100BCBC 01000000 0100FFFF"));
    EXPECT_EQ(contents("depth/n"), depth_header(4, 1) + hex("00000019 7FFFFFFF 05F5E100 00000000"));
}

// Rows 1 and 2 of five cannot be decoded; behind them the rows are found again.
TEST_F(VorlaTest, RowsBehindDamagedOnesAreFoundAgain)
{
    make("r/p", colour_header(4, 5) + hex("04102030 05050505 05050505 04102030 04102030"));
    EXPECT_EQ(run("vorla export -j 1 --partial p --to png . 2>&-"), "exit 1\n");
    const Bytes black = hex("000000FF 000000FF 000000FF 000000FF");
    const Bytes seen = hex("302010FF 302010FF 302010FF 302010FF");
    EXPECT_EQ(rgba("p.png"), seen + black + black + seen + seen);
}

TEST_F(VorlaTest, MemoryDoesNotGrowWithThePicture)
{
    std::vector<long> most; // KiB
    for (const int rows : {20, 400}) {
        make("r/p", colour_header(16320, rows) + Bytes(static_cast<size_t>(256 * rows), 255));
        EXPECT_EQ(run(R"(for t in png exr; do vorla export -f p 1.$t; vorla import -f 1.$t q
cmp p q; done; vorla verify -q p)"),
                  "");
        rusage usage = {};
        getrusage(RUSAGE_CHILDREN, &usage);
        most.push_back(usage.ru_maxrss);
    }
    EXPECT_LT(most[1], most[0] + 10240);
}
