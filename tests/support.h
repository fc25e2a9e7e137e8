// A host for the tests: the loaded module, a directory of its own for each test, the messages that
// were issued, and short ways to make files and to write and read images.
#pragma once

#include "tests/invariants.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <map>
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

// The samples of a row, channel after channel; or, of a row that cannot be read, the numbers of its
// messages, each with a minus sign.
using Samples = std::vector<int32_t>;

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
    void clear() const;                         // removes all images
    std::map<std::string, Bytes> files() const; // all regular files

    // Handles for the file `name` in "r/", or for `name` itself when it is an absolute path. They
    // are for the module's opens. close_image and vyn__free_obj destroy them.
    ImageHandle *reader(const std::string &name) const;
    ImageHandle *writer(const std::string &name, int32_t width, int32_t height, int32_t channels,
                        int32_t mattes = 0, int32_t depths = 0) const;

    // Whether a message has the severity and the words that hosts know of it.
    static bool is_known(const StandinMessage &message);

    // Whether an open may end so: by its last message (0: none), its result and its code.
    static bool is_ending(int last, int32_t result, int code);

    // Opens an image for reading, and checks that the result, the code, the messages and the open
    // files belong together. Leaves the result in `result` and the messages in `told`.
    ImageHandle *open_image(ImageHandle *handle);

    // Reads a scanline, and checks that its code and messages belong together.
    Samples ask(const ImageHandle *handle, int32_t y);
    std::vector<Samples> all_rows(const ImageHandle *handle); // in file order

    // Row buffers of an image, with noise that the row's number decides; valid until the next call.
    static void **noise(const PixState &state, int32_t row);

    // Opens an image for writing, writes noise and closes it. Returns the rows in file order, which
    // are numbers `first`, `first` + `step` and so on. The result of the open is in `result`, and
    // the messages of all calls are in `told`.
    std::vector<Samples> write_image(ImageHandle *handle, int32_t first = 0, int32_t step = 1);

    void close_image(ImageHandle *handle, int32_t code = 0);

    // Makes a catalogue and lets the module take its labels from there. Label 343 is `depth` and
    // label 344 is `matte`; every other label has its own number as its text.
    void translate(const std::string &depth, const std::string &matte);

    // Returns the numbers of the messages since the last call, in order; a system error is its
    // errno value with a minus sign. Leaves the texts of these messages in `texts`.
    std::vector<int> messages();

    StandinModule module = {};
    std::string directory;
    int32_t result = 0;
    std::vector<int> told;
    std::vector<std::string> texts;

  private:
    static void take(const StandinMessage &message, void *context);

    std::vector<int> new_numbers;
    std::vector<std::string> new_texts;
    decltype(open_descriptors()) descriptors = 0;
};
