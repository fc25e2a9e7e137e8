// Makes the module's calls fail, one after another. Each scenario runs once without a failure, to
// count its calls. Then it runs again for each call of each kind: once with this call failing, and
// once with all later calls failing too, of this kind and (unless it is a seek) to the C library.
// Scenarios with damaged files leave most of these runs out, see inject_all. docs/testing.md says
// how to run one failure alone.
//
// The module calls this program's own fopen, mkdir, unlink, malloc, free, flockfile and
// funlockfile. While the module is at work, these functions fail when the scenario wants it, open
// streams that can fail, and leave in errno the values that a C library is allowed to leave.
#include "tests/support.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

namespace fs = std::filesystem;

namespace {

// --- Calls that fail ------------------------------------------------------------------------

// A kind of call: of the module to the C library, or to a service of the host.
struct Call {
    const char *name;
    int error = 0; // the errno that a failure leaves; 0: errno is not changed
    // False: an open goes on as if nothing happened when one call of this kind fails.
    bool told = true;
    StandinService service = STANDIN_SERVICES;
    // The last messages with which an open for reading or writing may end after one call of this
    // kind failed; 0: it may end without a message.
    std::set<int> read = {}, write = {};
    long calls = 0; // counts the calls to the C library; the stand-in counts those of services
};

Call opens = {.name = "open", .error = ENOLCK, .read = {0, 52}, .write = {42, 52, 258}};
Call reads = {.name = "read", .error = EBADMSG, .read = {0, 25, 52, 60}};
Call ends = {.name = "end of file", .read = {0, 25, 52, 60}};
Call seeks = {.name = "seek", .error = EOVERFLOW, .read = {0, 25, 52, 60}};
Call writes = {.name = "write", .error = EDQUOT, .write = {56}};
Call halves = {.name = "half a write", .error = ENOSPC, .write = {56}};
Call closes = {.name = "close", .error = ESTALE, .told = false};
Call mkdirs = {.name = "mkdir", .error = EMLINK, .write = {42, 52, 258}};
Call unlinks = {.name = "unlink", .error = EBUSY, .told = false};
Call mallocs = {.name = "own malloc", .error = ENOMEM, .told = false};
Call blocks = {.name = "host malloc", .service = STANDIN_MALLOC, .read = {0}, .write = {0}};
Call texts = {
    .name = "host string", .service = STANDIN_SAVE, .read = {52, 94}, .write = {42, 52, 258}};
Call arrays = {.name = "host rows", .service = STANDIN_CHAN_ALLOC, .read = {0}};
Call paths = {
    .name = "host path", .service = STANDIN_BUILD_HANDLE, .read = {0, 52}, .write = {42, 52, 258}};

Call *const CALLS[] = {&opens,  &reads,   &ends,    &seeks,  &writes, &halves, &closes,
                       &mkdirs, &unlinks, &mallocs, &blocks, &texts,  &arrays, &paths};

struct Point {
    Call *call = &opens;
    long nth = 0; // 0: nothing fails
    bool onwards = false;
};

// How the image is found, and in what order its rows are asked for.
struct Way {
    const char *what = ": ";
    bool disorder = false, unbuffered = false, searched = false;
    int junk = ENOTNAM; // what calls that succeed leave in errno
    bool quiet = false; // errno is what the module left, and the host does not touch it
};

constexpr int HOST_JUNK = ENOTTY; // what services leave in errno

Point point;
Way way;
bool active = false;         // the module is at work
bool opened = false;         // there is an image
int reason = 0;              // what errno must be behind a message
size_t bad_closes = 0;       // since the module was called
long streams = 0;            // that are open
long locks = 0;              // that are held on streams
long allocations = 0;        // by anyone, while the module was at work
dl_find_object loaded;       // where the module lies
std::set<std::string> stuck; // files whose removal failed
std::string folders[1024];   // of the open files, by descriptor
std::string where;           // folder of the file that was used last

long calls_of(const Call &call)
{
    return call.service == STANDIN_SERVICES ? call.calls : standin_calls(call.service);
}

bool fired()
{
    return point.nth > 0 && calls_of(*point.call) >= point.nth;
}

// Behind a seek only seeks fail, for what cannot seek can go on being read.
bool fails(Call &call)
{
    call.calls += active;
    const bool chosen = &call == point.call && (point.onwards || call.calls == point.nth);
    if (!active || !fired() || !(chosen || (point.onwards && point.call != &seeks))) {
        return false;
    }
    errno = call.error ? call.error : errno;
    reason = call.error && (call.told || opened) ? call.error : reason;
    return true;
}

int use(void *cookie)
{
    const auto *folder = static_cast<std::string *>(cookie);
    where = *folder;
    return static_cast<int>(folder - folders);
}

ssize_t read_cookie(void *cookie, char *bytes, size_t size)
{
    const int file = use(cookie);
    return fails(reads) ? -1 : read(file, bytes, fails(ends) ? 0 : size);
}

ssize_t write_cookie(void *cookie, const char *bytes, size_t size)
{
    const int file = use(cookie);
    return fails(writes) ? 0 : write(file, bytes, fails(halves) ? size / 2 : size);
}

int seek_cookie(void *cookie, off64_t *offset, int whence)
{
    const int file = use(cookie);
    *offset = fails(seeks) ? -1 : lseek(file, *offset, whence);
    return *offset < 0 ? -1 : 0;
}

int close_cookie(void *cookie)
{
    close(use(cookie));
    --streams;
    const bool bad = fails(closes);
    bad_closes += bad;
    return bad ? -1 : 0;
}

FILE *open_stream(const char *name, const char *modes)
{
    const int file = open(name, modes[0] == 'w' ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY, 0666);
    if (file < 0) {
        reason = errno;
        return nullptr;
    }
    ++streams;
    folders[file] = fs::path(name).parent_path().filename();
    FILE *stream =
        fopencookie(&folders[file], modes, {read_cookie, write_cookie, seek_cookie, close_cookie});
    if (way.unbuffered) {
        setvbuf(stream, nullptr, _IONBF, 0);
    }
    errno = way.junk;
    // An fopen that failed before keeps its reason: a message shows it, although this fopen worked.
    reason = fired() && point.call == &opens ? reason : way.junk;
    return stream;
}

} // namespace

extern "C" FILE *fopen(const char *filename, const char *modes)
{
    const bool failed = fails(opens);
    return failed ? nullptr : active ? open_stream(filename, modes) : fopen64(filename, modes);
}

extern "C" int mkdir(const char *path, mode_t mode) noexcept
{
    return fails(mkdirs) ? -1 : mkdirat(AT_FDCWD, path, mode);
}

extern "C" int unlink(const char *name) noexcept
{
    if (fails(unlinks)) {
        stuck.insert(name);
        return -1;
    }
    errno = way.junk;
    return unlinkat(AT_FDCWD, name, 0);
}

extern "C" void flockfile(FILE *) noexcept
{
    ++locks;
}

extern "C" void funlockfile(FILE *) noexcept
{
    --locks;
}

#if !defined(__has_feature) // not clang: its preset has sanitizers, which bring their own allocator
static bool is_own(const void *caller)
{
    return active && caller >= loaded.dlfo_map_start && caller < loaded.dlfo_map_end;
}

extern "C" void *__libc_malloc(size_t size);
extern "C" void __libc_free(void *block);

extern "C" void *malloc(size_t size)
{
    allocations += active;
    return is_own(__builtin_return_address(0)) && fails(mallocs) ? nullptr : __libc_malloc(size);
}

extern "C" void free(void *block)
{
    __libc_free(block);
    errno = is_own(__builtin_return_address(0)) ? HOST_JUNK : errno;
}
#endif

namespace {

// --- Scenarios ------------------------------------------------------------------------------

constexpr int32_t WIDTH = 3;
constexpr int32_t HEIGHT = 4;

using Files = std::map<std::string, Bytes>;

struct Scenario {
    const char *what;
    bool write = false;
    int32_t planes[3] = {3, 0, 0}; // channels of colour, matte and depth
    std::string name = "r/x.pix";
    std::vector<std::string> files = {"x.pix"}; // to be read: one, or a pair
    Files damage = {};                          // what is then put in the place of some
    std::vector<int> told = {};                 // by an open in which nothing fails
};

const std::vector<std::string> PAIR = {"x.pix.e", "x.pix.o"};
const Bytes OTHER = colour_header(2, 1, 8);
const Files LONG = {{"r/x.pix", colour_header(WIDTH, HEIGHT) + hex("04010203")}};
const Files UNLIKE = {{"mask/x.pix.e", OTHER}, {"mask/x.pix.o", colour_header(1, 1, 8)}};
const Files MISFIT = {{"mask/x.pix", OTHER}, {"depth/x.pix", hex("0000DD4F")}};

const Scenario SCENARIOS[] = {
    {.what = "write colour with both", .write = true, .planes = {3, 1, 1}},
    {.what = "write depth", .write = true, .planes = {0, 0, 1}},
    {.what = "read colour with both", .planes = {3, 1, 1}},
    {.what = "read pair with both", .planes = {3, 1, 1}, .files = PAIR},
    {.what = "read pair of mattes", .planes = {0, 1}, .name = "r/x.1", .files = {"x.1e", "x.1o"}},
    {.what = "read colour from input", .name = "/dev/stdin"},
    {.what = "read a row that is too long", .damage = LONG},
    {.what = "read companions of other sizes", .damage = MISFIT, .told = {43, 25}},
    {.what = "read unlike fields", .files = PAIR, .damage = UNLIKE, .told = {259, 25}},
};

const Way WAYS[] = {
    {},
    {.what = ", out of order: ", .disorder = true},
    {.what = ", unbuffered: ", .unbuffered = true},
    {.what = ", unbuffered, out of order: ", .disorder = true, .unbuffered = true},
    {.what = ", searched: ", .searched = true},
    {.what = ", errno 0: ", .junk = 0},
    {.what = ", errno kept: ", .quiet = true},
};

// --- What is expected -----------------------------------------------------------------------

class FaultTest : public ModuleTest {
  protected:
    void SetUp() override
    {
        ModuleTest::SetUp();
        ASSERT_EQ(_dl_find_object(reinterpret_cast<void *>(module.read_open), &loaded), 0);
        const auto take = [](const StandinMessage &message, void *context) {
            static_cast<FaultTest *>(context)->check_message(message);
        };
        standin_set_sink(take, this);
    }

    // The part of a message that changes from case to case; "" when nothing is certain.
    std::string words(int number) const
    {
        const std::string &name = scenario.name;
        const std::string file = where + "/" + fs::path(name).filename().string();
        const std::string first = name[0] == '/' ? name : "r/" + scenario.files[0];
        // A failed service leaves HOST_JUNK in errno, and the message shows it when nothing has
        // changed errno since. Where that is not certain, the text is not checked (`any`).
        const bool service = !opened && point.call->service != STANDIN_SERVICES;
        const bool any = !opened && (point.onwards || point.call == &ends ||
                                     (service && (way.quiet || !scenario.write)));
        const int error = service ? HOST_JUNK : reason;
        const std::string why = any || (number == 25 && error == 0) ? "" : strerror(error);
        std::map<int, std::string> all = {
            {-1, first + ": " + why},
            {25, where + " file `" + file + "'; " + why},
            {42, "mask file " + name + "; " + why},
            {52, "file " + name + "; " + why},
            {53, asked + " ("},
            {55, "scanline " + asked + "; " + why},
            {56, "to " + (opened ? file : name) + "; " + why},
            {57, "scanline " + asked + "; " + why},
            {59, "scanline " + asked},
            {60, "file " + name + "; "},
            {258, "depth file " + name + "; " + why},
            {259, "`" + file + "'"},
        };
        return all[number] + (number == 25 && !any ? " (" : "");
    }

    void check_message(const StandinMessage &message)
    {
        const int number = seen.emplace_back(message.set == 902 ? message.number : -1);
        std::string text = message.text;
        text.erase(std::min(text.find(directory), text.size()), directory.size() + 1);
        EXPECT_PRED_FORMAT2(testing::IsSubstring, words(number), text);
        EXPECT_TRUE(number < 0 || is_known(message)) << text;
    }

    // One call of the module.
    int32_t call(const std::function<int32_t()> &procedure)
    {
        seen.clear();
        bad_closes = 0;
        errno = way.quiet ? left : reason;
        active = true;
        const int32_t returned = procedure();
        active = false;
        left = errno;
        EXPECT_EQ(locks, 0) << "streams are left locked";
        return returned;
    }

    // Makes the files of an image that is to be read.
    void prepare()
    {
        clear();
        const auto &[colours, mattes, depths] = scenario.planes;
        const auto step = static_cast<int32_t>(scenario.files.size());
        for (int32_t first = 0; first < step && !scenario.write; ++first) {
            write_image(writer(scenario.files[static_cast<size_t>(first)], WIDTH, HEIGHT / step,
                               colours, mattes, depths),
                        first, step);
        }
        for (const auto &[file, bytes] : scenario.damage) {
            make(file, bytes);
        }
    }

    // Starts to count, and to fail at `next`.
    static void set_point(const Point &next)
    {
        point = next;
        stuck.clear();
        standin_reset_faults();
        standin_spoil_errno(way.quiet ? 0 : HOST_JUNK);
        for (Call *kind : CALLS) {
            kind->calls = 0;
        }
        if (next.call->service != STANDIN_SERVICES) {
            standin_fail(next.call->service, next.nth, next.onwards);
        }
    }

    // Returns the handle after an open, whose result is then in `result`.
    ImageHandle *open()
    {
        const std::string &name = scenario.name;
        const auto &[colours, mattes, depths] = scenario.planes;
        stdin = name[0] == '/' ? open_stream(path("r/x.pix").c_str(), "r") : stdin;
        const size_t files_before = files().size();
        const std::string given = way.searched || name[0] == '/' ? name : path(name);
        ImageHandle *handle = scenario.write ? standin_new_writer(given.c_str(), WIDTH, HEIGHT,
                                                                  colours, mattes, depths)
                                             : standin_new_reader(given.c_str());
        handle->name_is_exact = way.searched ? 0 : 1;
        vyn__err = 0;
        reason = left = way.junk;
        astray = lost = opened = false;
        result =
            call([&] { return (scenario.write ? module.write_open : module.read_open)(handle); });
        opened = result != 0;
        asked = "0";
        check_open(handle, files_before);
        return handle;
    }

    // Whether an open may end with the messages in `seen`: after no failure, with those of the
    // scenario; after one failed call, with a last message of its kind; after several, with any.
    bool may_end(int last) const
    {
        const bool well = !fired() || (!point.onwards && !point.call->told);
        const std::set<int> &ends_of_one = scenario.write ? point.call->write : point.call->read;
        return well ? seen == scenario.told : point.onwards || ends_of_one.count(last) == 1;
    }

    // Checks how an open ended and what it left: after a failure, only files that unlink kept.
    void check_open(const ImageHandle *handle, size_t files_before)
    {
        const int last = seen.empty() ? 0 : seen.back();
        EXPECT_PRED3(is_ending, last, result, vyn__err);
        EXPECT_TRUE(may_end(last)) << testing::PrintToString(seen);
        long held = opened || stdin == real ? 0 : 1;
        if (opened) {
            for (const PixPlane &plane : handle->priv->state->plane) {
                held += plane.present ? handle->priv->state->fields : 0;
            }
        } else {
            EXPECT_EQ(files().size(), files_before + stuck.size()) << "files are left";
            EXPECT_EQ(handle->close_proc ? failed_open_holds(handle) : "", "");
        }
        EXPECT_EQ(streams, held) << "the open streams are not those of the image";
    }

    // Asks for a scanline, and checks what comes. One that goes well allocates nothing.
    void ask(const ImageHandle *handle, int32_t y)
    {
        asked = std::to_string(y);
        const bool write = scenario.write;
        PixState *state = handle->priv->state;
        const uint32_t next = state->row, row = static_cast<uint32_t>(HEIGHT - 1 - y);
        void **rows = noise(*state, HEIGHT - 1 - y);
        void *argument = write ? static_cast<void *>(rows) : &rows;
        const std::vector<int32_t> given = samples(*state, rows);
        const long allocated = allocations, sought = seeks.calls;
        const bool sure = state->seekable || !way.unbuffered;
        const int32_t code = call([&] { return handle->scanline_proc(state, y, argument); });
        const bool refused = write && row != next;
        EXPECT_EQ(vyn__err, code);
        EXPECT_TRUE(sure || !state->seekable || seeks.calls - sought >= streams)
            << "a stream made no seek";
        if (code == 0) {
            EXPECT_EQ(seen, std::vector<int>{});
            EXPECT_TRUE(result == 1 && !lost && !refused) << "this call must not give 0";
            EXPECT_EQ(allocations, allocated);
            astray = astray && (write || row >= next);
        } else {
            EXPECT_EQ(code, refused ? -2 : write ? -20 : -18);
            EXPECT_EQ(seen.empty() ? 0 : seen.back(), refused ? 53 : write ? 57 : 55);
            EXPECT_TRUE(refused || fired() || !scenario.damage.empty()) << "no call had failed";
            EXPECT_TRUE(state->row == next || !(write || lost)) << "the failed row was counted";
            // After a seek that failed no row is given before the files are found again.
            astray = astray || (!refused && point.call != &seeks);
            lost = point.call == &seeks && point.onwards;
        }
        if (write || (code == 0 && !astray)) {
            EXPECT_EQ(samples(*state, rows), given);
        }
    }

    // Closes the image; a handle without a private block or a state is only destroyed.
    void close(ImageHandle *handle)
    {
        const CloseProc close_proc = handle->close_proc ? handle->close_proc : closer;
        const long freed = standin_calls(STANDIN_FREE_OBJ);
        const int32_t code = call([&] { return close_proc(handle); });
        EXPECT_EQ(vyn__err, code);
        EXPECT_EQ(standin_calls(STANDIN_FREE_OBJ), freed + 1);
        EXPECT_EQ(code, seen.empty() ? 0 : -20);
        EXPECT_EQ(seen, std::vector<int>(seen.size(), 56));
        EXPECT_TRUE(seen.size() >= bad_closes && (fired() || seen.empty())) << seen.size();
        EXPECT_EQ(stdin == real ? 0 : fclose(std::exchange(stdin, real)), 0);
        EXPECT_EQ(streams, 0) << "left open";
        const bool complete = scenario.write && result == 1 && !astray && code == 0;
        for (const auto &[file, bytes] : complete ? files() : Files()) {
            EXPECT_EQ(bytes, written.try_emplace(file, bytes).first->second);
        }
    }

    // Runs the scenario with the failures of `next`. A null state has no scanlines.
    void inject(const Point &next)
    {
        if (scenario.write) {
            prepare();
        }
        set_point(next);
        ImageHandle *handle = open();
        if (next.nth == 0) {
            closer = handle->close_proc;
            EXPECT_EQ(call([&] { return handle->scanline_proc(nullptr, 0, nullptr); }), -2);
            EXPECT_EQ(vyn__err, -2);
        }
        const std::vector<int32_t> disorder = {2, 2, 1, 3, 0, 0, 2, 1, 0}, order = {3, 2, 1, 0};
        for (const int32_t y : way.disorder ? disorder : order) {
            if (opened) {
                ask(handle, y);
            }
        }
        close(handle);
    }

    // Runs the scenario without a failure, then with every one; returns how many.
    long inject_all()
    {
        const char *only = getenv("VORLA_FAULT");
        std::vector<Point> points;
        SCOPED_TRACE(std::string(scenario.what) + way.what);
        inject({});
        for (Call *kind : CALLS) {
            // How often a call is tried: alone and with all later ones; but in a scenario with
            // damaged files only alone, and only where its failure must not change the messages.
            const long certain = scenario.damage.empty() ? 2 : kind->told ? 0 : 1;
            for (long i = 0; i < certain * calls_of(*kind); ++i) {
                points.push_back({kind, i / certain + 1, i % certain != 0});
            }
        }
        long injected = 0;
        for (const Point &next : points) {
            const std::string name = std::string(scenario.what) + way.what + next.call->name + " " +
                                     std::to_string(next.nth) + (next.onwards ? " and on" : "");
            if (!only || name == only) {
                SCOPED_TRACE(name);
                inject(next);
                EXPECT_TRUE(fired()) << "the call was not made";
                ++injected;
            }
        }
        return injected;
    }

    Scenario scenario = {};
    std::vector<int> seen;    // messages of the last call
    std::string asked = "0";  // scanline
    int32_t result = 0;       // of the open
    int left = 0;             // what the last call left in errno
    bool astray = false;      // after a row that failed: what the next rows hold is not known
    bool lost = false;        // a seek has failed, and all later seeks fail too
    FILE *const real = stdin; // the program's own; a scenario may replace stdin
    CloseProc closer = nullptr;
    Files written; // what a scenario's files hold
};

} // namespace

TEST_F(FaultTest, AnyCallMayFail)
{
    setenv("KV_IMG_DIR", directory.c_str(), 1);
    long injected = 0;
    for (const Scenario &s : SCENARIOS) {
        scenario = s;
        written.clear();
        set_point({});
        prepare();
        for (const Way &w : WAYS) {
            way = w;
            injected += inject_all();
        }
    }
    EXPECT_GT(injected, 0) << "VORLA_FAULT names none of the failures";
    printf("%ld failures injected\n", injected);
}
