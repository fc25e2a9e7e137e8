// A host for the tests: the loaded module, a directory of its own for each test, the messages that
// were issued, and short ways to make files and to read images.
#pragma once

#include "tests/invariants.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <functional>
#include <string>
#include <vector>

// The module that is tested: the one that is built, or that of the environment.
inline const char *const module_path =
    getenv("VORLA_MODULE") ? getenv("VORLA_MODULE") : MODULE_PATH;

using Bytes = std::vector<uint8_t>;

// Bytes from hexadecimal digits; blanks do not matter.
Bytes hex(const std::string &digits);

// A file's header, and packets or samples behind it.
Bytes colour_header(int width, int height, int bits = 24);
Bytes depth_header(int width, int height, int magic = 56655);
Bytes operator+(Bytes front, const Bytes &back);

// What an image gave to a host that read it whole, in file order.
struct Picture {
    int32_t result = 0; // of the open
    int code = 0;       // vyn__err after it
    ImageInfo info = {};
    std::string label;                      // of its standard format
    PixState state = {};                    // as the open left it
    std::vector<std::vector<int32_t>> rows; // a file row's samples, channel after channel
    std::vector<int32_t> codes;             // of the scanline calls
};

class ModuleTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // A path in the test's directory. Images go to "r/", so that companions stay inside it too.
    std::string path(const std::string &name) const
    {
        return directory + "/" + name;
    }
    void make(const std::string &name, const Bytes &bytes) const;
    Bytes contents(const std::string &name) const;
    void clear() const;                     // removes all images
    std::vector<std::string> files() const; // all regular files, sorted

    // Opens r/`name`, after `prepare` has changed the handle, and reads all rows.
    using Prepare = std::function<void(ImageHandle *)>;
    Picture read(const std::string &name, const Prepare &prepare = {});

    // Opens r/`name` for writing; the handle must be closed or freed.
    ImageHandle *writer(const std::string &name, int32_t width, int32_t height, int32_t channels,
                        int32_t mattes = 0, int32_t depths = 0) const;

    // The numbers of the messages issued since the last call, in order.
    std::vector<int> messages();

    StandinModule module = {};
    std::string directory;
    std::vector<std::string> texts; // of the same messages

  private:
    static void take(const StandinMessage &message, void *context);

    std::vector<int> numbers;
    decltype(open_descriptors()) descriptors = 0;
};
