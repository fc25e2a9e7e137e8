// Every call that can fail, failing. Each scenario runs once to count its calls, then again with
// the first, the second, ... call of each kind failing, alone and with everything after it.
//
// A failure is traced to its point, say "read pair with both, unbuffered: read 7 and on". Set
// VORLA_FAULT to that text to run it alone. Scanlines that go well allocate nothing.
//
// This program's own fopen, mkdir, unlink and malloc are what the module calls. While the module is
// at work they fail as told, and hand out streams that fail.
#include "tests/support.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

namespace fs = std::filesystem;

namespace {

// clang-format off
enum Kind { OPEN, READ, END, SEEK, WRITE, HALF, CLOSE, MKDIR, UNLINK, OWN, MALLOC, TEXT, ROWS, PATH,
            KINDS };

// Each has an error of its own, so that a message tells of which call it speaks; a service of the
// host, or -1.
struct KindName { const char *name; int error, service; };

const KindName NAMES[KINDS] = {
    {"open", ENOLCK, -1}, {"read", EBADMSG, -1}, {"end of file", 0, -1}, {"seek", EOVERFLOW, -1},
    {"write", EDQUOT, -1}, {"half a write", ENOSPC, -1}, {"close", ESTALE, -1},
    {"mkdir", EMLINK, -1}, {"unlink", EBUSY, -1}, {"own malloc", ENOMEM, -1},
    {"host malloc", 0, STANDIN_MALLOC}, {"host string", 0, STANDIN_SAVE},
    {"host rows", 0, STANDIN_CHAN_ALLOC}, {"host path", 0, STANDIN_BUILD_HANDLE},
};
// clang-format on

struct Point {
    Kind kind;
    long nth; // 0: nothing fails
    bool onwards, unbuffered;
};

Point point;
bool active = false; // the module is at work
bool closing = false;
bool seekless = false; // no stream can seek
long calls[KINDS];
int reason = 0;   // errno of the last call that failed since the module was called; 0: none
int failures = 0; // since then
int bad_closes = 0;
dl_find_object loaded;             // where the module lies
long allocations = 0;              // by anyone, while the module was at work
int streams = 0;                   // that are open
std::set<std::string> made, stuck; // files created; those of them whose removal failed

long calls_of(int kind)
{
    const int service = NAMES[kind].service;
    return service < 0 ? calls[kind] : standin_calls(static_cast<StandinService>(service));
}

bool fired()
{
    return point.nth > 0 && calls_of(point.kind) >= point.nth;
}

void fail_services(long nth, bool onwards, int only)
{
    for (int kind = MALLOC; kind < KINDS; ++kind) {
        if (only < 0 || kind == only) {
            standin_fail(static_cast<StandinService>(NAMES[kind].service), nth, onwards);
        }
    }
}

bool fails(Kind kind)
{
    if (!active) {
        return false;
    }
    ++calls[kind];
    if (!fired() || !(point.onwards || (kind == point.kind && calls[kind] == point.nth))) {
        return false;
    }
    if (point.onwards) {
        fail_services(1, true, -1);
    }
    ++failures;
    const bool told = kind != END && kind != UNLINK && kind != OWN && (kind != CLOSE || closing);
    reason = told ? NAMES[kind].error : reason;
    errno = kind == END ? errno : NAMES[kind].error;
    return true;
}

// --- Streams that fail ----------------------------------------------------------------------

ssize_t read_cookie(void *cookie, char *bytes, size_t size)
{
    if (fails(READ)) {
        return -1;
    }
    return fails(END) ? 0 : read(*static_cast<int *>(cookie), bytes, size);
}

ssize_t write_cookie(void *cookie, const char *bytes, size_t size)
{
    if (fails(WRITE)) {
        return 0;
    }
    const bool half = fails(HALF);
    const ssize_t written = write(*static_cast<int *>(cookie), bytes, half ? size / 2 : size);
    errno = half ? NAMES[HALF].error : errno;
    return written;
}

int seek_cookie(void *cookie, off64_t *offset, int whence)
{
    *offset = fails(SEEK) || seekless ? -1 : lseek(*static_cast<int *>(cookie), *offset, whence);
    return *offset < 0 ? -1 : 0;
}

int close_cookie(void *cookie)
{
    close(*static_cast<int *>(cookie));
    delete static_cast<int *>(cookie);
    --streams;
    const bool bad = fails(CLOSE);
    bad_closes += bad;
    return bad ? -1 : 0;
}

FILE *open_stream(const char *name, bool write)
{
    const int file = open(name, write ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY, 0666);
    if (file < 0) {
        ++failures;
        reason = errno;
        return nullptr;
    }
    FILE *stream = fopencookie(new int(file), write ? "w" : "r",
                               {read_cookie, write_cookie, seek_cookie, close_cookie});
    if (point.unbuffered) {
        setvbuf(stream, nullptr, _IONBF, 0);
    }
    ++streams;
    errno = ENOTNAM; // success may leave anything there
    return stream;
}

} // namespace

extern "C" FILE *fopen(const char *filename, const char *modes)
{
    if (!active) {
        return fopen64(filename, modes);
    }
    FILE *stream = fails(OPEN) ? nullptr : open_stream(filename, modes[0] == 'w');
    if (stream && modes[0] == 'w') {
        made.insert(filename);
    }
    return stream;
}

extern "C" int mkdir(const char *path, mode_t mode) noexcept
{
    return fails(MKDIR) ? -1 : mkdirat(AT_FDCWD, path, mode);
}

extern "C" int unlink(const char *name) noexcept
{
    if (fails(UNLINK)) {
        stuck.insert(name);
        return -1;
    }
    return unlinkat(AT_FDCWD, name, 0);
}

#if !defined(__has_feature) // the sanitizers have an allocator of their own
extern "C" void *__libc_malloc(size_t size);

extern "C" void *malloc(size_t size)
{
    allocations += active;
    const void *caller = __builtin_return_address(0);
    const bool own = caller >= loaded.dlfo_map_start && caller < loaded.dlfo_map_end;
    return own && fails(OWN) ? nullptr : __libc_malloc(size);
}
#endif

// --- Scenarios ------------------------------------------------------------------------------

namespace {

constexpr int32_t WIDTH = 3;
constexpr int32_t HEIGHT = 3;

// clang-format off
struct Scenario {
    const char *what; bool write; int32_t channels, mattes, depths; const char *name;
    std::vector<const char *> files; // to be read: one, or a pair
};
// clang-format on

const Scenario SCENARIOS[] = {
    {"write colour", true, 3, 0, 0, "r/x.pix", {}},
    {"write colour with matte", true, 3, 1, 0, "r/x.pix", {}},
    {"write colour with both", true, 3, 1, 1, "r/x.pix", {}},
    {"write matte", true, 0, 1, 0, "r/x.pix", {}},
    {"write depth", true, 0, 0, 1, "r/x.pix", {}},
    {"write colour to output", true, 3, 0, 0, "/dev/stdout", {}},
    {"write depth to output", true, 0, 0, 1, "/dev/stdout", {}},
    {"read colour", false, 3, 0, 0, "r/x.pix", {"x.pix"}},
    {"read colour with matte", false, 3, 1, 0, "r/x.pix", {"x.pix"}},
    {"read colour with depth", false, 3, 0, 1, "r/x.pix", {"x.pix"}},
    {"read colour with both", false, 3, 1, 1, "r/x.pix", {"x.pix"}},
    {"read matte", false, 0, 1, 0, "r/x.pix", {"x.pix"}},
    {"read pair", false, 3, 0, 0, "r/x.pix", {"x.pix.e", "x.pix.o"}},
    {"read pair with both", false, 3, 1, 1, "r/x.pix", {"x.pix.e", "x.pix.o"}},
    {"read pair of mattes", false, 0, 1, 0, "r/x.1", {"x.1e", "x.1o"}},
    {"read colour from input", false, 3, 0, 0, "/dev/stdin", {"x.pix"}},
    {"read matte from input", false, 0, 1, 0, "/dev/stdin", {"x.pix"}},
};

// How an open may end, by the one call that failed in it.
// clang-format off
struct Outcome {
    bool write; int32_t result; int code;
    std::vector<int> messages; // -1: of the system
    std::set<Kind> kinds;
};
// clang-format on

const Outcome OUTCOMES[] = {
    // A companion or one of several places is not there; the C library does without.
    {false, 1, 0, {}, {OPEN, PATH, READ, END, SEEK, OWN}},
    {false, 1, 0, {94}, {TEXT}},
    {false, -1, 0, {}, {ROWS}},
    {false, 0, -5, {52}, {OPEN, PATH}},
    {false, 0, -5, {94, 52}, {TEXT}},
    {false, 0, -5, {-1, 52}, {READ, END, SEEK}},
    {false, 0, -5, {25}, {READ, END}},
    {false, 0, -8, {60}, {READ, END}},
    {false, 0, -10, {}, {MALLOC}},
    {false, 0, -10, {94}, {TEXT}},
    {true, 1, 0, {}, {OWN}},
    {true, 1, -5, {42}, {OPEN, MKDIR}},
    {true, 1, -5, {258}, {OPEN, MKDIR}},
    {true, 1, -5, {94, 42}, {TEXT}},
    {true, 1, -5, {94, 258}, {TEXT}},
    {true, 0, -5, {52}, {OPEN, PATH}},
    {true, 0, -5, {94, 52}, {TEXT}},
    {true, 0, -10, {}, {MALLOC}},
    {true, 0, -20, {56}, {WRITE, HALF}},
};

// A row's samples, and the buffers that hold them, of the kinds that an image has.
struct Row {
    Row(const ImageInfo &info, int32_t row)
    {
        const int32_t has[] = {info.channel_count, info.channel_count, info.channel_count,
                               info.matte_count, info.aux_count};
        for (int32_t channel = 0; channel < 5; ++channel) {
            for (int32_t x = 0; x < WIDTH && has[channel]; ++x) {
                all.push_back(row * 7 + x / 2 + (channel < 4 ? channel * 50 : 100000));
                bytes[channel][x] = static_cast<uint8_t>(all.back());
                depths[x] = all.back();
            }
            if (has[channel]) {
                buffers.push_back(channel < 4 ? static_cast<void *>(bytes[channel]) : depths);
            }
        }
    }

    std::vector<int32_t> all;
    std::vector<void *> buffers;
    uint8_t bytes[5][WIDTH];
    int32_t depths[WIDTH];
};

class FaultTest : public ModuleTest {
  protected:
    void SetUp() override
    {
        ModuleTest::SetUp();
        ASSERT_EQ(_dl_find_object(reinterpret_cast<void *>(module.read_open), &loaded), 0);
    }

    // One call of the module, with the standard streams replaced.
    template <class Call>
    int32_t call(const Call &procedure)
    {
        FILE *const kept[] = {stdin, stdout};
        stdin = standard ? standard : stdin;
        stdout = standard ? standard : stdout;
        reason = failures = bad_closes = 0;
        active = true;
        const int32_t result = procedure();
        active = false;
        stdin = kept[0];
        stdout = kept[1];
        return result;
    }

    void make_image(const Scenario &s, const std::string &name, int32_t first, int32_t step)
    {
        const int32_t height = (HEIGHT - first + step - 1) / step;
        ImageHandle *handle = writer(name, WIDTH, height, s.channels, s.mattes, s.depths);
        ASSERT_EQ(module.write_open(handle), 1);
        for (int32_t row = 0; row < height; ++row) {
            Row data(*handle->info, first + row * step);
            handle->scanline_proc(handle->priv->state, height - 1 - row, data.buffers.data());
        }
        ASSERT_EQ(handle->close_proc(handle), 0);
    }

    void prepare(const Scenario &s)
    {
        clear();
        const auto step = static_cast<int32_t>(s.files.size());
        for (int32_t i = 0; i < step; ++i) {
            make_image(s, s.files[static_cast<size_t>(i)], i, step);
        }
    }

    // The messages of one call. The last one tells why, if a call of the system failed.
    std::vector<int> checked_messages()
    {
        std::vector<int> seen = messages();
        if (!seen.empty() && seen.back() != 53 && seen.back() != 60 && seen.back() != 94 &&
            reason != 0 && point.kind < OWN && point.kind != END) {
            EXPECT_NE(texts.back().find(strerror(reason)), std::string::npos)
                << texts.back() << ", not " << strerror(reason);
        }
        EXPECT_LE(seen.size(), 6U); // one for each stream
        return seen;
    }

    void check_open(bool write, int32_t result, int code)
    {
        std::vector<int> seen = checked_messages();
        for (int &number : seen) {
            number = std::max(number, -1);
        }
        const auto allows = [&](const Outcome &o) {
            const bool last = seen.empty() == o.messages.empty() &&
                              (seen.empty() || seen.back() == o.messages.back());
            return o.write == write && o.result == result && o.code == code &&
                   (point.onwards ? last : o.messages == seen && o.kinds.count(point.kind) > 0);
        };
        EXPECT_TRUE(fired() ? std::any_of(std::begin(OUTCOMES), std::end(OUTCOMES), allows)
                            : result == 1 && code == 0 && seen.empty())
            << "open " << result << ", code " << code << testing::PrintToString(seen);
    }

    // What a failed open left: no stream, no name, no claim; of its files those that would not go.
    void check_failed(ImageHandle *handle, const std::vector<std::string> &before)
    {
        std::set<std::string> left(before.begin(), before.end());
        for (const std::string &name : made) {
            left.erase(fs::relative(name, directory));
        }
        for (const std::string &name : stuck) {
            left.insert(fs::relative(name, directory));
        }
        EXPECT_EQ(files(), std::vector<std::string>(left.begin(), left.end()));
        EXPECT_EQ(streams, standard ? 1 : 0);
        if (!handle->close_proc) {
            return;
        }
        const PixState &s = *handle->priv->state;
        for (const PixPlane &plane : s.plane) {
            EXPECT_FALSE(plane.file[0].fp || plane.file[1].fp || plane.name || plane.present);
            EXPECT_FALSE(plane.file[0].buffer || plane.file[1].buffer || plane.starts);
        }
        void *rows[5] = {};
        EXPECT_EQ(handle->scanline_proc(handle->priv->state, 0, rows), -2);
        EXPECT_EQ(messages(), std::vector<int>{53});
    }

    void ask(ImageHandle *handle, bool write, int32_t y, bool buffers)
    {
        PixState *state = handle->priv->state;
        const auto before = static_cast<int32_t>(state->row);
        const int32_t row = HEIGHT - 1 - y;
        Row data(*handle->info, row);
        const Row given = data;
        const long allocated = allocations;
        void **rows = data.buffers.data();
        const int32_t code = call([&] {
            return handle->scanline_proc(state, y, write ? static_cast<void *>(rows) : &rows);
        });
        EXPECT_EQ(code, vyn__err);
        const std::vector<int> seen = checked_messages();
        astray = astray && (write || row >= before);
        if (code == 0) {
            EXPECT_TRUE(seen.empty() && buffers && allocations == allocated);
            EXPECT_TRUE(astray || write || samples(rows, *handle->info, WIDTH) == given.all);
        } else if (write && row != before) {
            EXPECT_TRUE(code == -2 && seen == std::vector<int>{53});
        } else {
            EXPECT_EQ(code, write ? -20 : -18);
            EXPECT_EQ(seen.back(), write ? 57 : 55);
            EXPECT_NE(texts.back().find(" scanline " + std::to_string(y)), std::string::npos);
            EXPECT_TRUE(write ? before == static_cast<int32_t>(state->row) : fired());
            // After a seek that failed no row is given before the files are found again.
            astray = point.kind != SEEK || point.onwards;
        }
        EXPECT_EQ(memcmp(data.depths, given.depths, write ? sizeof data.depths : 0), 0);
    }

    // Runs the scenario with the failures of `next`.
    void inject(const Scenario &s, const Point &next, bool exact, bool disorder)
    {
        point = next;
        made.clear();
        stuck.clear();
        std::fill(std::begin(calls), std::end(calls), 0);
        standin_reset_faults();
        if (point.nth > 0 && point.kind >= MALLOC) {
            fail_services(point.nth, point.onwards, point.kind);
        }
        if (s.write) {
            prepare(s);
        }
        const bool is_standard = s.name[0] == '/';
        standard = is_standard ? open_stream(path("r/x.pix").c_str(), s.write) : nullptr;
        const std::vector<std::string> before = files();
        const std::string name = exact && !is_standard ? path(s.name) : s.name;
        ImageHandle *handle = s.write ? standin_new_writer(name.c_str(), WIDTH, HEIGHT, s.channels,
                                                           s.mattes, s.depths)
                                      : standin_new_reader(name.c_str());
        handle->name_is_exact = exact ? 1 : 0;
        vyn__err = 0;
        errno = EDOM; // the reason where no call fails
        astray = false;
        const int32_t result =
            call([&] { return s.write ? module.write_open(handle) : module.read_open(handle); });
        check_open(s.write, result, vyn__err);
        if (result == 0) {
            check_failed(handle, before);
        } else {
            for (const int32_t y : disorder ? std::vector<int32_t>{0, 2, 2, 1, 0, 0}
                                            : std::vector<int32_t>{2, 1, 0}) {
                ask(handle, s.write, y, result == 1);
            }
        }
        check_close(handle, s.write && result == 1 && !astray);
    }

    void check_close(ImageHandle *handle, bool complete)
    {
        const bool open = handle->close_proc != nullptr;
        closing = true;
        const int32_t code = call([&] { return open ? handle->close_proc(handle) : 0; });
        closing = false;
        open ? (void)0 : vyn__free_obj(handle);
        const std::vector<int> seen = checked_messages();
        EXPECT_EQ(code, seen.empty() ? 0 : -20);
        EXPECT_EQ(std::count(seen.begin(), seen.end(), 56), static_cast<long>(seen.size()));
        EXPECT_GE(seen.size(), static_cast<size_t>(bad_closes));
        EXPECT_TRUE(failures > 0 || seen.empty());
        EXPECT_EQ(streams, standard ? 1 : 0);
        EXPECT_EQ(standard ? fclose(standard) : 0, 0);
        EXPECT_EQ(streams, 0);
        for (const std::string &file : complete &&code == 0 ? files() : decltype(files())()) {
            EXPECT_EQ(contents(file), written.try_emplace(file, contents(file)).first->second);
        }
    }

    // The code of reading a scanline, whose samples are right if it is 0.
    int32_t read(ImageHandle *handle, int32_t y)
    {
        void **rows = nullptr;
        const Row expected(*handle->info, HEIGHT - 1 - y);
        std::fill(std::begin(calls), std::end(calls), 0);
        const int32_t code =
            call([&] { return handle->scanline_proc(handle->priv->state, y, &rows); });
        EXPECT_TRUE(code != 0 || samples(rows, *handle->info, WIDTH) == expected.all) << y;
        return code;
    }

    FILE *standard = nullptr;             // in the place of the process's standard streams
    bool astray = false;                  // a scanline has failed
    std::map<std::string, Bytes> written; // what a scenario's files hold
};

} // namespace

TEST_F(FaultTest, EveryCallThatCanFail)
{
    setenv("KV_IMG_DIR", directory.c_str(), 1);
    const char *only = getenv("VORLA_FAULT");
    long injected = 0;
    for (const Scenario &s : SCENARIOS) {
        point = {};
        written.clear();
        prepare(s);
        for (unsigned variant = 0; variant < 6; ++variant) {
            const bool exact = variant / 2 != 2; // searching differs in the open alone
            const bool disorder = variant / 2 == 1;
            const bool unbuffered = variant % 2 != 0;
            const std::string how = std::string(s.what) + (exact ? "" : ", searched") +
                                    (disorder ? ", out of order" : "") +
                                    (unbuffered ? ", unbuffered: " : ": ");
            inject(s, {OPEN, 0, false, unbuffered}, exact, disorder);
            std::vector<Point> points;
            for (int kind = 0; kind < KINDS; ++kind) {
                for (long i = 0; i < 2 * calls_of(kind); ++i) {
                    points.push_back({static_cast<Kind>(kind), i / 2 + 1, i % 2 != 0, unbuffered});
                }
            }
            for (const Point &next : points) {
                const std::string name = how + NAMES[next.kind].name + " " +
                                         std::to_string(next.nth) + (next.onwards ? " and on" : "");
                if (!only || name == only) {
                    SCOPED_TRACE(name);
                    inject(s, next, exact, disorder);
                    EXPECT_TRUE(fired());
                    ++injected;
                }
            }
            // the next image is none the wiser
            inject(s, {OPEN, 0, false, unbuffered}, exact, disorder);
        }
    }
    unsetenv("KV_IMG_DIR");
    EXPECT_GT(injected, 0);
    printf("%ld failures injected\n", injected);
}

// An image whose files may stand at different rows since a seek failed is lost: every request, also
// one onward, first brings all files to a row that is known, or fails.
TEST_F(FaultTest, ASeekThatFailsLeavesTheImageLost)
{
    const Scenario images[] = {{"", false, 3, 1, 1, "", {"x.pix"}},
                               {"", false, 3, 1, 1, "", {"x.pix.e", "x.pix.o"}}};
    for (const Scenario &image : images) {
        prepare(image);
        for (long nth = 1; nth <= 3 * static_cast<long>(image.files.size()); ++nth) {
            SCOPED_TRACE(std::string(image.files[0]) + ", seek " + std::to_string(nth));
            point = {OPEN, 0, false, true}; // within a buffer nothing is sought
            ImageHandle *handle = standin_new_reader(path("r/x.pix").c_str());
            EXPECT_EQ(call([&] { return module.read_open(handle); }), 1);
            EXPECT_EQ(read(handle, 2), 0);
            EXPECT_EQ(read(handle, 1), 0);
            point = {SEEK, nth, false, false};
            EXPECT_EQ(read(handle, 1), -18);
            seekless = true;
            EXPECT_EQ(read(handle, 0), -18);
            EXPECT_EQ(read(handle, 2), -18);
            EXPECT_EQ(handle->priv->state->row, 2U);
            seekless = false;
            point = {};
            EXPECT_EQ(read(handle, 0), 0);
            EXPECT_EQ(read(handle, 2), 0);
            EXPECT_EQ(call([&] { return handle->close_proc(handle); }), 0);
        }
    }
}
