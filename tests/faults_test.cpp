// Every call that can fail, failing. Each scenario runs once to count its calls, then again with
// the first, the second, ... call of each kind failing, alone and with everything after it.
//
// A failure is traced to its point, say "read pair with both, unbuffered: read 7 and on". Set
// VORLA_FAULT to that text to run it alone.
//
// This program's own fopen, mkdir, unlink, malloc and free are what the module calls. While the
// module is at work they fail as told, hand out streams that fail, and leave in errno what they
// may.
#include "tests/invariants.h"
#include "tests/messages.h"
#include "tests/support.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

namespace fs = std::filesystem;

namespace {

// --- Calls that fail ------------------------------------------------------------------------

// A kind of call: of the module to the C library, or to a service of the host.
struct Call {
    const char *name;
    int error = 0;    // that a failure leaves in errno, of this kind alone; 0: what was there
    bool told = true; // a message shows that error
    int service = -1; // of the stand-in
    long calls = 0;   // to the C library
};

Call opens = {.name = "open", .error = ENOLCK};
Call reads = {.name = "read", .error = EBADMSG};
Call ends = {.name = "end of file", .told = false};
Call seeks = {.name = "seek", .error = EOVERFLOW};
Call writes = {.name = "write", .error = EDQUOT};
Call halves = {.name = "half a write", .error = ENOSPC};
Call closes = {.name = "close", .error = ESTALE, .told = false};
Call mkdirs = {.name = "mkdir", .error = EMLINK};
Call unlinks = {.name = "unlink", .error = EBUSY, .told = false};
Call mallocs = {.name = "own malloc", .error = ENOMEM, .told = false};
Call host_mallocs = {.name = "host malloc", .service = STANDIN_MALLOC};
Call host_texts = {.name = "host string", .service = STANDIN_SAVE};
Call host_rows = {.name = "host rows", .service = STANDIN_CHAN_ALLOC};
Call host_paths = {.name = "host path", .service = STANDIN_BUILD_HANDLE};

Call *const CALLS[] = {&opens,        &reads,      &ends,      &seeks,     &writes,
                       &halves,       &closes,     &mkdirs,    &unlinks,   &mallocs,
                       &host_mallocs, &host_texts, &host_rows, &host_paths};

struct Point {
    Call *call = &opens;
    long nth = 0; // 0: nothing fails
    bool onwards = false, unbuffered = false;
};

constexpr int HOST_JUNK = ENOTTY; // what services leave in errno

Point point;
bool active = false;      // the module is at work
bool seekless = false;    // no stream can seek
int junk = ENOTNAM;       // what an open that succeeds leaves in errno
int reason = 0;           // what errno must be behind a message
const char *where = "";   // folder of the file that was used last
int failures = 0;         // since the module was called
int bad_closes = 0;       // since then
int streams = 0;          // that are open
long allocations = 0;     // by anyone, while the module was at work
dl_find_object loaded;    // where the module lies
std::set<fs::path> made;  // files created
std::set<fs::path> stuck; // those of them whose removal failed

long calls_of(const Call &call)
{
    return call.service < 0 ? call.calls : standin_calls(static_cast<StandinService>(call.service));
}

bool fired()
{
    return point.nth > 0 && calls_of(*point.call) >= point.nth;
}

bool fails(Call &call)
{
    call.calls += active;
    const bool chosen = point.onwards || (&call == point.call && call.calls == point.nth);
    if (!active || !fired() || !chosen) {
        return false;
    }
    for (const Call *other : CALLS) {
        if (point.onwards && other->service >= 0) {
            standin_fail(static_cast<StandinService>(other->service), 1, true);
        }
    }
    ++failures;
    reason = call.told ? call.error : reason;
    errno = call.error ? call.error : errno;
    return true;
}

const char *folder_of(const std::string &name)
{
    const bool matte = name.find("mask") != name.npos;
    return matte ? "mask" : name.find("depth") != name.npos ? "depth" : "r";
}

const char *folders[1024]; // of the files that are open, by descriptor

int use(void *cookie)
{
    const auto *folder = static_cast<const char **>(cookie);
    where = *folder;
    return static_cast<int>(folder - folders);
}

ssize_t read_cookie(void *cookie, char *bytes, size_t size)
{
    const int file = use(cookie);
    if (fails(reads)) {
        return -1;
    }
    return fails(ends) ? 0 : read(file, bytes, size);
}

ssize_t write_cookie(void *cookie, const char *bytes, size_t size)
{
    const int file = use(cookie);
    if (fails(writes)) {
        return 0;
    }
    return write(file, bytes, fails(halves) ? size / 2 : size);
}

int seek_cookie(void *cookie, off64_t *offset, int whence)
{
    const int file = use(cookie);
    *offset = fails(seeks) || seekless ? -1 : lseek(file, *offset, whence);
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

FILE *open_stream(const char *name, bool write)
{
    const int file = open(name, write ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY, 0666);
    if (file < 0) {
        ++failures;
        reason = errno;
        return nullptr;
    }
    folders[file] = folder_of(name);
    FILE *stream = fopencookie(&folders[file], write ? "w" : "r",
                               {read_cookie, write_cookie, seek_cookie, close_cookie});
    if (point.unbuffered) {
        setvbuf(stream, nullptr, _IONBF, 0);
    }
    ++streams;
    reason = fired() && point.call == &opens ? reason : junk;
    errno = junk;
    return stream;
}

} // namespace

extern "C" FILE *fopen(const char *filename, const char *modes)
{
    if (!active) {
        return fopen64(filename, modes);
    }
    where = folder_of(filename);
    FILE *stream = fails(opens) ? nullptr : open_stream(filename, modes[0] == 'w');
    if (stream && modes[0] == 'w') {
        made.insert(filename);
    }
    return stream;
}

extern "C" int mkdir(const char *path, mode_t mode) noexcept
{
    where = folder_of(path);
    return fails(mkdirs) ? -1 : mkdirat(AT_FDCWD, path, mode);
}

extern "C" int unlink(const char *name) noexcept
{
    if (fails(unlinks)) {
        stuck.insert(name);
        return -1;
    }
    const int result = unlinkat(AT_FDCWD, name, 0);
    errno = active ? junk : errno;
    return result;
}

#if !defined(__has_feature) // the sanitizers have an allocator of their own
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
    errno = is_own(__builtin_return_address(0)) ? junk : errno;
}
#endif

namespace {

// --- What is expected -----------------------------------------------------------------------

// How a message begins. KIND is the folder of the file that was used last, FILE its image's name,
// NAME the main file's, FIRST that of the main file which is read first.
struct Message {
    int number; // -1: of the system
    const char *text;
};

const Message MESSAGES[] = {
    {.number = -1, .text = "FIRST: REASON"},
    {.number = 25, .text = "Cannot open KIND file `FILE'; REASON (header"},
    {.number = 42, .text = "Cannot open mask file NAME; REASON (vorla"},
    {.number = 43, .text = "Vorla mask file's size"},
    {.number = 52, .text = "Cannot open file NAME; REASON"},
    {.number = 53, .text = "Bad scanline: ROW ("},
    {.number = 55, .text = "Cannot read scanline ROW; REASON"},
    {.number = 56, .text = "Cannot write to FILE; REASON"},
    {.number = 57, .text = "Cannot write scanline ROW; REASON"},
    {.number = 59, .text = "Cannot decode scanline ROW"},
    {.number = 60, .text = "Cannot read file NAME; Invalid header"},
    {.number = 94, .text = "No more internal memory"},
    {.number = 258, .text = "Cannot open depth file NAME; REASON (vorla"},
    {.number = 259, .text = "The odd and even fields Vorla image file `FILE' don't"},
    {.number = 0, .text = "a known message"},
};

// How an open may end, by the one call that failed in it.
struct Outcome {
    bool write = false;
    int32_t result = 0;
    int code = 0;
    std::vector<int> messages = {};
    std::set<const Call *> calls;
};

const Outcome OUTCOMES[] = {
    // A companion or one of several places is not there; the C library does without.
    {.result = 1, .calls = {&opens, &host_paths, &reads, &ends, &seeks, &mallocs}},
    {.result = 1, .messages = {94}, .calls = {&host_texts}},
    {.result = -1, .calls = {&host_rows}},
    {.code = -5, .messages = {52}, .calls = {&opens, &host_paths}},
    {.code = -5, .messages = {94, 52}, .calls = {&host_texts}},
    {.code = -5, .messages = {-1, 52}, .calls = {&reads, &ends, &seeks}},
    {.code = -5, .messages = {25}, .calls = {&reads, &ends}},
    {.code = -8, .messages = {60}, .calls = {&reads, &ends}},
    {.code = -10, .calls = {&host_mallocs}},
    {.code = -10, .messages = {94}, .calls = {&host_texts}},
    {.write = true, .result = 1, .calls = {&mallocs}},
    {.write = true, .result = 1, .code = -5, .messages = {42}, .calls = {&opens, &mkdirs}},
    {.write = true, .result = 1, .code = -5, .messages = {258}, .calls = {&opens, &mkdirs}},
    {.write = true, .result = 1, .code = -5, .messages = {94, 42}, .calls = {&host_texts}},
    {.write = true, .result = 1, .code = -5, .messages = {94, 258}, .calls = {&host_texts}},
    {.write = true, .code = -5, .messages = {52}, .calls = {&opens, &host_paths}},
    {.write = true, .code = -5, .messages = {94, 52}, .calls = {&host_texts}},
    {.write = true, .code = -10, .calls = {&host_mallocs}},
    {.write = true, .code = -20, .messages = {56}, .calls = {&writes, &halves}},
};

// --- Scenarios ------------------------------------------------------------------------------

constexpr int32_t WIDTH = 3;
constexpr int32_t HEIGHT = 3;

struct Scenario {
    std::string what;
    bool write = false;
    int32_t colours = 0, mattes = 0, depths = 0;
    std::string name = "r/x.pix";
    std::vector<std::string> files = {"x.pix"}; // to be read: one, or a pair
    bool here = false;                          // the name leads there without a search too
};

const std::vector<std::string> PAIR = {"x.pix.e", "x.pix.o"};

const Scenario SCENARIOS[] = {
    {.what = "write colour", .write = true, .colours = 3},
    {.what = "write colour with matte", .write = true, .colours = 3, .mattes = 1},
    {.what = "write colour with both", .write = true, .colours = 3, .mattes = 1, .depths = 1},
    {.what = "write matte", .write = true, .mattes = 1},
    {.what = "write depth", .write = true, .depths = 1},
    {.what = "write colour to output", .write = true, .colours = 3, .name = "/dev/stdout"},
    {.what = "write depth to output", .write = true, .depths = 1, .name = "/dev/stdout"},
    {.what = "read colour", .colours = 3},
    {.what = "read colour here", .colours = 3, .here = true},
    {.what = "read colour with matte", .colours = 3, .mattes = 1},
    {.what = "read colour with depth", .colours = 3, .depths = 1},
    {.what = "read colour with both", .colours = 3, .mattes = 1, .depths = 1},
    {.what = "read matte", .mattes = 1},
    {.what = "read pair", .colours = 3, .files = PAIR},
    {.what = "read pair here", .colours = 3, .files = PAIR, .here = true},
    {.what = "read pair with both", .colours = 3, .mattes = 1, .depths = 1, .files = PAIR},
    {.what = "read pair of mattes", .mattes = 1, .name = "r/x.1", .files = {"x.1e", "x.1o"}},
    {.what = "read colour from input", .colours = 3, .name = "/dev/stdin"},
    {.what = "read matte from input", .mattes = 1, .name = "/dev/stdin"},
};

// The row buffers of an image, filled.
struct Row {
    Row(const ImageInfo &info, int32_t row)
    {
        for (int32_t x = 0; x < WIDTH; ++x) {
            for (int32_t channel = 0; channel < 4; ++channel) {
                bytes[channel][x] = static_cast<uint8_t>(row * 7 + x / 2 + channel * 50);
            }
            depths[x] = 100000 + row * 7 + x / 2;
        }
        buffers.assign(bytes, bytes + info.channel_count);
        buffers.insert(buffers.end(), bytes + 3, bytes + 3 + info.matte_count);
        buffers.insert(buffers.end(), &depths, &depths + info.aux_count);
    }

    std::vector<void *> buffers;
    uint8_t bytes[4][WIDTH];
    int32_t depths[WIDTH];
};

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

    // What errno must be behind a message; -1: anything.
    int expected_reason(int number) const
    {
        const bool host = point.call->service >= 0;
        const bool astray_search = point.call == &host_paths && !scenario.write;
        if (opened || number == 25 || number == 56) {
            return reason;
        }
        if (point.onwards || astray_search) {
            return -1;
        }
        // The main file's name is saved behind its open, or there was no open.
        const bool late = point.call == &ends && (!exact || scenario.name[0] == '/');
        return host || late ? HOST_JUNK : reason;
    }

    void check_message(const StandinMessage &message)
    {
        const int number = seen.emplace_back(message.set == 902 ? message.number : -1);
        const int error = expected_reason(number);
        const std::string companion = where + scenario.name.substr(1);
        const bool main = where[0] == 'r' || (number == 56 && !opened);
        const std::pair<const char *, std::string> words[] = {
            {"FILE", main ? scenario.name : companion},
            {"NAME", scenario.name},
            {"FIRST", scenario.files.size() == 2 ? "r/" + scenario.files[0] : scenario.name},
            {"KIND", where},
            {"ROW", std::to_string(asked)},
            {"REASON", error == 0 && number == 25 ? "" : strerror(error)}};
        const Message &known = *std::find_if(MESSAGES, std::end(MESSAGES) - 1,
                                             [&](const Message &m) { return m.number == number; });
        std::string expected = known.text;
        expected.resize(error < 0 ? std::min(expected.find("REASON"), expected.size())
                                  : expected.size());
        for (const auto &[word, value] : words) {
            for (size_t at = 0; (at = expected.find(word)) != expected.npos;) {
                expected.replace(at, strlen(word), value);
            }
        }
        std::string text = message.text;
        for (size_t at = 0; (at = text.find(directory + "/")) != text.npos;) {
            text.erase(at, directory.size() + 1);
        }
        // Standard output may be replaced now.
        wrong += text.rfind(expected, 0) == 0 ? "" : text + ", not " + expected + "; ";
        wrong += number < 0 || is_known(message) ? "" : text + " is not as in the table; ";
    }

    // One call of the module, with the standard streams replaced.
    template <class Procedure>
    int32_t call(const Procedure &procedure)
    {
        FILE *const kept[] = {stdin, stdout};
        stdin = standard ? standard : stdin;
        stdout = standard ? standard : stdout;
        failures = bad_closes = 0;
        seen.clear();
        wrong.clear();
        errno = spoilt ? reason : errno;
        active = true;
        const int32_t returned = procedure();
        active = false;
        stdin = kept[0];
        stdout = kept[1];
        EXPECT_EQ(wrong, "") << "messages that are not as expected";
        return returned;
    }

    // Starts to count, and to fail at `next`.
    void set_point(const Point &next)
    {
        point = next;
        made.clear();
        stuck.clear();
        standin_reset_faults();
        standin_spoil_errno(spoilt ? HOST_JUNK : 0);
        for (Call *kind : CALLS) {
            kind->calls = 0;
        }
        if (point.nth > 0 && point.call->service >= 0) {
            standin_fail(static_cast<StandinService>(point.call->service), point.nth,
                         point.onwards);
        }
    }

    void prepare()
    {
        clear();
        point = {};
        const Scenario &s = scenario;
        const auto step = static_cast<int32_t>(s.write ? 0 : s.files.size());
        for (int32_t i = 0; i < step; ++i) {
            const int32_t height = (HEIGHT - i + step - 1) / step;
            ImageHandle *handle = writer(s.files[static_cast<size_t>(i)], WIDTH, height, s.colours,
                                         s.mattes, s.depths);
            ASSERT_EQ(module.write_open(handle), 1);
            for (int32_t row = 0; row < height; ++row) {
                Row data(*handle->info, i + row * step);
                handle->scanline_proc(handle->priv->state, height - 1 - row, data.buffers.data());
            }
            ASSERT_EQ(handle->close_proc(handle), 0);
        }
    }

    // Returns the handle after an open, whose result is then in `result`.
    ImageHandle *open()
    {
        const Scenario &s = scenario;
        const bool is_standard = s.name[0] == '/';
        standard = is_standard ? open_stream(path("r/x.pix").c_str(), s.write) : nullptr;
        before = files();
        const std::string name = exact && !is_standard ? path(s.name) : s.name;
        ImageHandle *handle =
            s.write ? standin_new_writer(name.c_str(), WIDTH, HEIGHT, s.colours, s.mattes, s.depths)
                    : standin_new_reader(name.c_str());
        handle->name_is_exact = exact ? 1 : 0;
        vyn__err = 0;
        reason = errno = junk;
        astray = opened = false;
        result =
            call([&] { return s.write ? module.write_open(handle) : module.read_open(handle); });
        opened = result != 0;
        return handle;
    }

    void check_open(const ImageHandle *handle)
    {
        const int code = vyn__err;
        const auto allows = [&](const Outcome &o) {
            const bool last = seen.empty() == o.messages.empty() &&
                              (seen.empty() || seen.back() == o.messages.back());
            return o.write == scenario.write && o.result == result && o.code == code &&
                   (point.onwards ? last : o.messages == seen && o.calls.count(point.call) > 0);
        };
        const auto ended = testing::Message() << "open " << result << ", code " << code
                                              << ", messages " << testing::PrintToString(seen);
        if (fired()) {
            EXPECT_TRUE(std::any_of(std::begin(OUTCOMES), std::end(OUTCOMES), allows)) << ended;
        } else {
            EXPECT_EQ(ended.GetString(), "open 1, code 0, messages {}");
        }
        const bool other_place =
            scenario.here && !exact && !point.onwards && scenario.files.size() == 1;
        if (other_place && (point.call == &opens || point.call == &host_paths)) {
            EXPECT_EQ(result, 1) << "the other place was not tried";
        }
        if (!opened) {
            check_failed(handle);
            return;
        }
        long files_held = 0;
        for (const PixPlane &plane : handle->priv->state->plane) {
            files_held += plane.present ? handle->priv->state->fields : 0;
        }
        EXPECT_EQ(streams, files_held) << "the streams of what the image has";
    }

    // What a failed open left: no stream, no name, no claim; of its files those that would not go.
    void check_failed(const ImageHandle *handle)
    {
        std::set<std::string> left(before.begin(), before.end());
        for (const fs::path &name : made) {
            left.erase(fs::relative(name, directory));
        }
        for (const fs::path &name : stuck) {
            left.insert(fs::relative(name, directory));
        }
        EXPECT_EQ(files(), std::vector<std::string>(left.begin(), left.end()));
        EXPECT_EQ(streams, standard ? 1 : 0) << "left open";
        if (!handle->close_proc) {
            return;
        }
        asked = 0;
        EXPECT_EQ(failed_open_holds(handle), "");
        EXPECT_EQ(seen.empty() ? 0 : seen.back(), 53);
    }

    // Another thread can have every stream.
    static void check_locks(const PixState *state)
    {
        std::thread([state] {
            for (const PixPlane &plane : state->plane) {
                for (const PixFile &file : plane.file) {
                    ASSERT_EQ(file.fp ? ftrylockfile(file.fp) : 0, 0) << "left locked";
                    file.fp ? funlockfile(file.fp) : (void)0;
                }
            }
        }).join();
    }

    // Asks for a scanline, and checks what comes. Scanlines that go well allocate nothing.
    int32_t ask(const ImageHandle *handle, int32_t y)
    {
        asked = y;
        const bool write = scenario.write;
        PixState *state = handle->priv->state;
        const auto next = static_cast<int32_t>(state->row);
        const int32_t row = HEIGHT - 1 - y;
        Row data(*handle->info, row);
        const long allocated = allocations;
        void **rows = data.buffers.data();
        const std::vector<int32_t> given = samples(*handle->priv->state, rows);
        const int32_t code = call([&] {
            return handle->scanline_proc(state, y, write ? static_cast<void *>(rows) : &rows);
        });
        EXPECT_EQ(code, vyn__err);
        astray = astray && (write || row >= next);
        if (code == 0) {
            EXPECT_EQ(seen, std::vector<int>{});
            EXPECT_EQ(result, 1) << "no buffers, but a row";
            EXPECT_EQ(allocations, allocated);
        } else if (write && row != next) {
            EXPECT_EQ(code, -2);
            EXPECT_EQ(seen, std::vector<int>{53});
        } else {
            EXPECT_EQ(code, write ? -20 : -18);
            EXPECT_EQ(seen.empty() ? 0 : seen.back(), write ? 57 : 55);
            EXPECT_TRUE(fired());
            EXPECT_TRUE(!write || next == static_cast<int32_t>(state->row));
            // After a seek that failed no row is given before the files are found again.
            astray = point.call != &seeks || point.onwards;
        }
        if (write || (code == 0 && !astray)) {
            EXPECT_EQ(samples(*handle->priv->state, rows), given);
        }
        if (point.nth == 0) {
            check_locks(state);
        }
        return code;
    }

    void check_close(ImageHandle *handle)
    {
        const bool complete = scenario.write && result == 1 && !astray;
        const bool open = handle->close_proc != nullptr;
        closes.told = true;
        const int32_t code = call([&] { return open ? handle->close_proc(handle) : 0; });
        closes.told = false;
        open ? (void)0 : vyn__free_obj(handle);
        EXPECT_EQ(code, seen.empty() ? 0 : -20);
        EXPECT_EQ(seen, std::vector<int>(seen.size(), 56));
        EXPECT_LE(seen.size(), 6U); // one for each stream
        EXPECT_GE(seen.size(), static_cast<size_t>(bad_closes));
        EXPECT_GE(failures, seen.empty() ? 0 : 1);
        EXPECT_EQ(streams, standard ? 1 : 0) << "left open";
        EXPECT_EQ(standard ? fclose(standard) : 0, 0);
        EXPECT_EQ(streams, 0);
        for (const std::string &file : complete &&code == 0 ? files() : decltype(files())()) {
            EXPECT_EQ(contents(file), written.try_emplace(file, contents(file)).first->second);
        }
    }

    // Runs the scenario with the failures of `next`.
    void inject(const Point &next, bool disorder)
    {
        if (scenario.write) {
            prepare();
        }
        set_point(next);
        ImageHandle *handle = open();
        check_open(handle);
        for (const int32_t y : disorder ? std::vector{0, 2, 2, 1, 0, 0} : std::vector{2, 1, 0}) {
            if (opened) {
                ask(handle, y);
            }
        }
        check_close(handle);
    }

    // Injects every failure; returns how many.
    long inject_all(const std::string &how, bool disorder, bool unbuffered)
    {
        const char *only = getenv("VORLA_FAULT");
        long injected = 0;
        inject({.unbuffered = unbuffered}, disorder);
        std::vector<Point> points;
        for (Call *kind : CALLS) {
            for (long i = 0; i < 2 * calls_of(*kind); ++i) {
                points.push_back({kind, i / 2 + 1, i % 2 != 0, unbuffered});
            }
        }
        for (const Point &next : points) {
            const std::string name = how + next.call->name + " " + std::to_string(next.nth) +
                                     (next.onwards ? " and on" : "");
            if (!only || name == only) {
                SCOPED_TRACE(name);
                inject(next, disorder);
                EXPECT_TRUE(fired()) << "the call was not made";
                ++injected;
            }
        }
        SCOPED_TRACE(how + "the image after the failures");
        inject({.unbuffered = unbuffered}, disorder);
        return injected;
    }

    Scenario scenario;
    std::vector<std::string> before; // files, before the open
    bool exact = true;
    bool spoilt = true;    // services leave junk in errno
    std::vector<int> seen; // messages of the last call
    std::string wrong;     // what is wrong with them
    int32_t asked = 0;     // scanline
    int32_t result = 0;    // of the open
    bool opened = false;
    bool astray = false;                  // a scanline has failed
    FILE *standard = nullptr;             // in the place of the process's standard streams
    std::map<std::string, Bytes> written; // what a scenario's files hold
};

} // namespace

TEST_F(FaultTest, EveryCallThatCanFail)
{
    setenv("KV_IMG_DIR", directory.c_str(), 1);
    long injected = 0;
    for (const Scenario &s : SCENARIOS) {
        scenario = s;
        fs::current_path(s.here ? directory : "/");
        written.clear();
        prepare();
        for (const bool unbuffered : {false, true}) {
            const std::string how = unbuffered ? ", unbuffered: " : ": ";
            injected += inject_all(s.what + how, false, unbuffered);
            injected += inject_all(s.what + ", out of order" + how, true, unbuffered);
            exact = false; // searching differs in the open alone
            injected += inject_all(s.what + ", searched" + how, false, unbuffered);
            exact = true;
        }
    }
    fs::current_path("/");
    unsetenv("KV_IMG_DIR");
    EXPECT_GT(injected, 0);
    printf("%ld failures injected\n", injected);
}

// What goes wrong without a call that fails has no reason, and no message shows one of another
// call.
TEST_F(FaultTest, AMessageShowsNoReasonOfAnotherCall)
{
    struct Damage {
        std::string what;
        std::vector<std::pair<const char *, Bytes>> files;
        std::vector<int> messages; // of the open and its first scanline
    };
    const Bytes colour = colour_header(1, 1) + hex("01010203"), depth = hex("0000DD4F");
    const Bytes matte = colour_header(1, 1, 8), other = colour_header(2, 1, 8);
    const Damage damages[] = {
        {.what = "a matte that does not fit, and a short depth",
         .files = {{"r/x.pix", colour}, {"mask/x.pix", other}, {"depth/x.pix", depth}},
         .messages = {43, 25}},
        {.what = "fields of a matte that do not match",
         .files = {{"r/x.pix.e", colour},
                   {"r/x.pix.o", colour},
                   {"mask/x.pix.e", matte},
                   {"mask/x.pix.o", other}},
         .messages = {259, 25}},
        {.what = "a row that is too long",
         .files = {{"r/x.pix", colour_header(1, 1) + hex("02010203")}},
         .messages = {59, 55}},
        {.what = "a row that ends early",
         .files = {{"r/x.pix", colour_header(1, 1)}},
         .messages = {55}},
    };
    for (const Damage &damage : damages) {
        clear();
        for (const auto &[name, bytes] : damage.files) {
            make(name, bytes);
        }
        for (int i = 0; i < 2 * 2 * 6; ++i) {
            spoilt = i % 2 == 0;
            junk = i / 2 % 2 == 0 ? ENOTNAM : 0;
            SCOPED_TRACE(damage.what + ", variant " + std::to_string(i));
            scenario = {.what = "", .files = {"x.pix"}};
            set_point({.call = i / 4 == 0 ? &closes : &mallocs, .nth = std::max(1, i / 4)});
            ImageHandle *handle = open();
            std::vector<int> all = seen;
            if (opened) {
                void **rows = nullptr;
                asked = 0;
                call([&] { return handle->scanline_proc(handle->priv->state, 0, &rows); });
                all.insert(all.end(), seen.begin(), seen.end());
            }
            EXPECT_EQ(all, damage.messages);
            handle->close_proc(handle);
        }
    }
    junk = ENOTNAM;
}

// An image whose files may stand at different rows since a seek failed is lost: every request, also
// one onward, first brings all files to a row that is known, or fails.
TEST_F(FaultTest, ASeekThatFailsLeavesTheImageLost)
{
    for (const auto &names : {std::vector<std::string>{"x.pix"}, PAIR}) {
        scenario = {.what = "", .colours = 3, .mattes = 1, .depths = 1, .files = names};
        prepare();
        for (long nth = 1; nth <= 3 * static_cast<long>(names.size()); ++nth) {
            SCOPED_TRACE(names[0] + ", seek " + std::to_string(nth));
            set_point({.unbuffered = true}); // within a buffer nothing is sought
            ImageHandle *handle = open();
            EXPECT_EQ(ask(handle, 2), 0);
            EXPECT_EQ(ask(handle, 1), 0);
            set_point({.call = &seeks, .nth = nth});
            EXPECT_EQ(ask(handle, 1), -18);
            seekless = true;
            EXPECT_EQ(ask(handle, 0), -18);
            EXPECT_EQ(ask(handle, 2), -18);
            EXPECT_EQ(handle->priv->state->row, 2U);
            seekless = false;
            set_point({});
            EXPECT_EQ(ask(handle, 0), 0);
            EXPECT_EQ(ask(handle, 2), 0);
            check_close(handle);
        }
    }
}

// A null state has no scanlines, and a handle without one is only destroyed.
TEST_F(FaultTest, WithoutAStateNothingIsThereToBeDone)
{
    for (const bool write : {true, false}) {
        scenario = {.what = "", .write = write, .colours = 3};
        prepare();
        set_point({});
        ImageHandle *handle = open();
        vyn__err = 1;
        EXPECT_EQ(call([&] { return handle->scanline_proc(nullptr, 0, nullptr); }), -2);
        EXPECT_EQ(vyn__err, -2);
        const CloseProc close_proc = handle->close_proc;
        check_close(handle);
        for (const bool block : {true, false}) {
            handle = standin_new_reader("x");
            handle->priv =
                block ? static_cast<PixPrivate *>(calloc(1, sizeof(PixPrivate))) : nullptr;
            vyn__err = 1;
            const long freed = standin_calls(STANDIN_FREE_OBJ);
            EXPECT_EQ(call([&] { return close_proc(handle); }), 0);
            EXPECT_EQ(vyn__err, 0);
            EXPECT_EQ(standin_calls(STANDIN_FREE_OBJ), freed + 1);
        }
        EXPECT_EQ(seen, std::vector<int>{});
    }
}
