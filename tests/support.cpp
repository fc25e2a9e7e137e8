#include "tests/support.h"

#include <fnmatch.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <utility>

namespace fs = std::filesystem;

// What the host gets of each message: its severity, 2 or 3, and its words. Every message that is
// issued in a test is held against this table. A path stands before a reason, which begins with a
// capital letter.
struct KnownMessage {
    int number, severity;
    const char *words; // a pattern as of file names
};

constexpr KnownMessage KNOWN_MESSAGES[] = {
    {25, 3, "Cannot open [!/]* file `*/*'; *(header is corrupt)"},
    {42, 2,
     "Cannot open mask file */*; [A-Z]* (vorla images need a special directory for mask files)"},
    {43, 3, "Vorla mask file's size must be the same size as the size of the image"},
    {52, 3, "Cannot open file *; [A-Z]*"},
    {53, 3, "Bad scanline: [-0-9]* (out of range, or not in sequence if a sequential file)"},
    {55, 3, "Cannot read scanline [0-9]*; [A-Z]*"},
    {56, 3, "Cannot write to */*; [A-Z]*"},
    {57, 3, "Cannot write scanline [0-9]*; [A-Z]*"},
    {59, 3, "Cannot decode scanline [0-9]*"},
    {60, 3, "Cannot read file */*; Invalid header"},
    {61, 3, "Vorla cannot store multiple images"},
    {69, 3, "Vorla cannot handle multiple auxiliary channels"},
    {71, 3, "Vorla cannot handle auxiliary channel width"},
    {72, 3, "Vorla cannot handle image channel type"},
    {73, 3, "Vorla cannot handle image channel width"},
    {75, 3, "Vorla cannot handle image channel format, \"?GB\""},
    {78, 3, "Vorla cannot handle multiple matte channels"},
    {79, 3, "Vorla cannot handle matte channel type"},
    {80, 3, "Vorla cannot handle matte channel width"},
    {92, 2,
     "Unknown type-specific capability code ([0-9]*) specified when trying to open image file"},
    {94, 3, "No more internal memory"},
    {257, 3, "Vorla depth file's size must be the same size as the size of the image"},
    {258, 2,
     "Cannot open depth file */*; [A-Z]* (vorla images need a special directory for depth files)"},
    {259, 3, "The odd and even fields Vorla image file `*/*' don't match"},
};

Bytes hex(const std::string &digits)
{
    Bytes bytes;
    for (size_t at = 0; at < digits.size(); at += digits[at] == ' ' ? 1 : 2) {
        if (digits[at] != ' ') {
            bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(at, 2), nullptr, 16)));
        }
    }
    return bytes;
}

Bytes colour_header(int width, int height, int bits)
{
    char digits[32];
    snprintf(digits, sizeof digits, "%04X%04X0000%04X%04X", width & 0xFFFF, height & 0xFFFF,
             (height - 1) & 0xFFFF, bits);
    return hex(digits);
}

Bytes depth_header(int width, int height, int magic)
{
    char digits[32];
    snprintf(digits, sizeof digits, "%08X%04X%04X", magic, width & 0xFFFF, height & 0xFFFF);
    return hex(digits);
}

Bytes operator+(Bytes front, const Bytes &back)
{
    front.insert(front.end(), back.begin(), back.end());
    return front;
}

void ModuleTest::SetUp()
{
    std::string name = fs::temp_directory_path() / "vorla-XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    directory = name;
    fs::create_directory(path("r"));
    standin_set_sink(take, this);
    const char *failure = standin_load(module_path, &module);
    ASSERT_EQ(failure, nullptr) << failure;
    standin_reset_faults();
    vyn__err = 0;
    descriptors = open_descriptors();
}

void ModuleTest::TearDown()
{
    EXPECT_EQ(open_descriptors(), descriptors) << "a stream was left open";
    standin_unload(&module);
    standin_set_sink(nullptr, nullptr);
    fs::remove_all(directory);
}

void ModuleTest::make(const std::string &name, const Bytes &bytes) const
{
    fs::create_directories(fs::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

Bytes ModuleTest::contents(const std::string &name) const
{
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void ModuleTest::clear() const
{
    for (const char *folder : {"r", "mask", "depth"}) {
        fs::remove_all(path(folder));
    }
    fs::create_directory(path("r"));
}

std::map<std::string, Bytes> ModuleTest::files() const
{
    std::map<std::string, Bytes> all;
    for (const auto &entry : fs::recursive_directory_iterator(directory)) {
        if (entry.is_regular_file()) {
            const std::string name = fs::relative(entry.path(), directory);
            all[name] = contents(name);
        }
    }
    return all;
}

ImageHandle *ModuleTest::reader(const std::string &name) const
{
    return standin_new_reader((fs::path(path("r")) / name).c_str());
}

ImageHandle *ModuleTest::writer(const std::string &name, int32_t width, int32_t height,
                                int32_t channels, int32_t mattes, int32_t depths) const
{
    return standin_new_writer((fs::path(path("r")) / name).c_str(), width, height, channels, mattes,
                              depths);
}

bool ModuleTest::is_ending(int last, int32_t result, int code)
{
    const std::set<std::array<int, 3>> endings = {
        {0, 1, 0},    {0, -1, 0},  {0, 0, -10},  {25, 0, -5}, {42, 1, -5},
        {43, 1, -5},  {52, 0, -5}, {56, 0, -20}, {60, 0, -8}, {92, 1, -16},
        {94, 0, -10}, {94, 1, 0},  {257, 1, -5}, {258, 1, -5}};
    return endings.count({last, result, code}) == 1;
}

ImageHandle *ModuleTest::open_image(ImageHandle *handle)
{
    vyn__err = 0;
    result = module.read_open(handle);
    told = messages();
    EXPECT_PRED3(is_ending, told.empty() ? 0 : told.back(), result, vyn__err);
    EXPECT_EQ(result == 1 ? image_disagrees(handle) : failed_open_holds(handle), "");
    new_numbers.clear(); // of the row that a failed open was asked for
    new_texts.clear();
    return handle;
}

Samples ModuleTest::ask(const ImageHandle *handle, int32_t y)
{
    void **rows = nullptr;
    vyn__err = -1;
    const PixState *state = handle->priv->state;
    const int32_t code = handle->scanline_proc(handle->priv->state, y, &rows);
    EXPECT_EQ(vyn__err, code);
    const bool inside = y >= 0 && y < state->height;
    EXPECT_EQ(code, rows ? 0 : inside ? -18 : -2);
    Samples refusal;
    for (const int number : messages()) {
        refusal.push_back(-number);
    }
    EXPECT_EQ(refusal.empty() ? 0 : refusal.back(), rows ? 0 : inside ? -55 : -53);
    return rows ? samples(*state, rows) : refusal;
}

std::vector<Samples> ModuleTest::all_rows(const ImageHandle *handle)
{
    std::vector<Samples> rows;
    for (int32_t y = handle->info->height - 1; y >= 0; --y) {
        rows.push_back(ask(handle, y));
    }
    return rows;
}

void **ModuleTest::noise(const PixState &state, int32_t row)
{
    static Samples cells[5];
    static void *buffers[5];
    std::minstd_rand random(static_cast<uint32_t>(row) + 1);
    void **next = buffers;
    for (int i = 0; i < 5; ++i) {
        cells[i].resize(static_cast<size_t>(state.width));
        auto *bytes = reinterpret_cast<uint8_t *>(cells[i].data());
        for (int32_t at = 0; at < 4 * state.width; ++at) {
            bytes[at] = at > 0 && random() % 2 ? bytes[at - 1] : static_cast<uint8_t>(random());
        }
        // Cells 0 to 2 are colour, 3 is matte and 4 is depth. All are filled, so that a row has
        // the same noise in every set; the next buffer takes the place of an absent plane's.
        *next = bytes;
        next += state.plane[std::max(0, i - 2)].present;
    }
    return buffers;
}

std::vector<Samples> ModuleTest::write_image(ImageHandle *handle, int32_t first, int32_t step)
{
    result = module.write_open(handle);
    PixState *state = handle->priv->state;
    std::vector<Samples> rows;
    for (int32_t y = state->height - 1; result == 1 && y >= 0; --y, first += step) {
        void **row = noise(*state, first);
        rows.push_back(samples(*state, row));
        EXPECT_EQ(handle->scanline_proc(state, y, row), 0);
    }
    close_image(handle);
    told = messages();
    return rows;
}

void ModuleTest::close_image(ImageHandle *handle, int32_t code)
{
    const CloseProc close_proc = handle->close_proc;
    vyn__err = -1;
    EXPECT_EQ(close_proc(handle), code);
    EXPECT_EQ(vyn__err, code);
    EXPECT_EQ(close_proc(nullptr), 0);
    EXPECT_EQ(vyn__err, code);
}

void ModuleTest::translate(const std::string &depth, const std::string &matte)
{
    std::ofstream words(path("words"));
    words << "$set 901\n";
    for (int number = 1; number < 343; ++number) {
        words << number << " " << number << "\n";
    }
    words << "343 " << depth << "\n344 " << matte << std::endl;
    fs::remove(path("catalogue"));
    ASSERT_EQ(system(("gencat " + path("catalogue") + " " + path("words")).c_str()), 0);
    vyn__msg_cat = catopen(path("catalogue").c_str(), 0);
}

std::vector<int> ModuleTest::messages()
{
    texts = std::exchange(new_texts, {});
    return std::exchange(new_numbers, {});
}

bool ModuleTest::is_known(const StandinMessage &message)
{
    return std::any_of(
        std::begin(KNOWN_MESSAGES), std::end(KNOWN_MESSAGES), [&](const KnownMessage &known) {
            return known.number == message.number && known.severity == message.severity &&
                   fnmatch(known.words, message.text, 0) == 0;
        });
}

void ModuleTest::take(const StandinMessage &message, void *context)
{
    auto *test = static_cast<ModuleTest *>(context);
    EXPECT_TRUE(message.set == 0 || is_known(message)) << message.severity << " " << message.text;
    test->new_numbers.push_back(message.set == 902 ? message.number : -message.number);
    test->new_texts.emplace_back(message.text);
}
