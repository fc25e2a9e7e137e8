#include "tests/support.h"
#include "tests/messages.h"

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

namespace fs = std::filesystem;

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

static Bytes words(std::initializer_list<long> values)
{
    Bytes bytes;
    for (const long value : values) {
        bytes.insert(bytes.end(), {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)});
    }
    return bytes;
}

Bytes colour_header(int width, int height, int bits)
{
    return words({width, height, 0, height - 1, bits});
}

Bytes depth_header(int width, int height, int magic)
{
    return words({magic >> 16, magic, width, height});
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

std::vector<std::string> ModuleTest::files() const
{
    std::vector<std::string> names;
    for (const auto &entry : fs::recursive_directory_iterator(directory)) {
        if (entry.is_regular_file()) {
            names.push_back(fs::relative(entry.path(), directory));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

Picture ModuleTest::read(const std::string &name, const Prepare &prepare)
{
    ImageHandle *handle = standin_new_reader(path("r/" + name).c_str());
    if (prepare) {
        prepare(handle);
    }
    Picture picture;
    picture.result = module.read_open(handle);
    picture.code = vyn__err;
    if (picture.result != 1) {
        // A host that closes what did not open must come to no harm.
        handle->close_proc ? static_cast<void>(handle->close_proc(handle)) : vyn__free_obj(handle);
        return picture;
    }
    picture.info = *handle->info;
    picture.label = handle->info->format_label;
    picture.state = *handle->priv->state;
    for (int32_t y = handle->info->height - 1; y >= 0; --y) {
        void **rows = nullptr;
        picture.codes.push_back(handle->scanline_proc(handle->priv->state, y, &rows));
        EXPECT_EQ(vyn__err, picture.codes.back());
        if (rows) {
            picture.rows.push_back(samples(picture.state, rows));
        }
    }
    EXPECT_EQ(handle->close_proc(handle), 0);
    return picture;
}

ImageHandle *ModuleTest::writer(const std::string &name, int32_t width, int32_t height,
                                int32_t channels, int32_t mattes, int32_t depths) const
{
    return standin_new_writer(path("r/" + name).c_str(), width, height, channels, mattes, depths);
}

std::vector<int> ModuleTest::messages()
{
    return std::exchange(numbers, {});
}

void ModuleTest::take(const StandinMessage &message, void *context)
{
    auto *test = static_cast<ModuleTest *>(context);
    EXPECT_TRUE(message.set == 0 || is_known(message)) << message.severity << " " << message.text;
    test->numbers.push_back(message.set == 902 ? message.number : -message.number);
    test->texts.emplace_back(message.text);
}
