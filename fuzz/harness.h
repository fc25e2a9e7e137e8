// What the fuzz targets share: their input, and for those that make files of it a private directory
// and the images in it.
#pragma once

#undef NDEBUG // what is asserted is checked in every build

#include "tests/invariants.h"

#include <assert.h>
#include <stdio.h>

#include <map>
#include <span>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

using Input = std::span<const uint8_t>;

void try_image(Input input); // of a target that makes files

// Takes bytes from the start of the input, as many as it has.
inline Input take(Input *input, size_t size)
{
    const Input taken = input->first(std::min(size, input->size()));
    *input = input->subspan(taken.size());
    return taken;
}

// The same as a number, the highest byte first.
inline uint32_t number(Input *input, size_t size)
{
    uint32_t value = 0;
    for (const uint8_t byte : take(input, size)) {
        value = value << 8 | byte;
    }
    return value;
}

// Where the kinds of file lie: colour, matte and depth.
constexpr const char *FOLDERS[] = {"/renders/", "/mask/", "/depth/"};

inline std::string directory; // of the folders; it begins the search list

using Rows = std::map<uint8_t, std::vector<int32_t>>; // samples by the row's number in the file

// Reads the row `number`, counted from the top; 253, 254 and 255 stand for special scanlines. Keeps
// the samples of a row that was read without an error, unless an earlier failure has left the files
// at an unknown place.
inline void read_row(const ImageHandle *handle, uint8_t number, Rows *kept)
{
    PixState *state = handle->priv->state;
    const int32_t special[] = {0, INT32_MAX, INT32_MIN};
    const int32_t y = number < 253 ? state->height - 1 - number : special[number - 253];
    void **rows = nullptr;
    const int32_t code = handle->scanline_proc(state, y, &rows);
    const bool inside = y >= 0 && y < state->height;
    assert(code == vyn__err && (inside ? code == 0 || code == -18 : code == -2));
    assert(rows == (code == 0 ? state->chan : nullptr));
    if (code == 0 && state->place == PIX_AT_ROW) {
        const auto row = samples(*state, rows);
        assert(kept->emplace(number, row).first->second == row);
    }
}

// Opens an image and reads rows. Returns the state that the open left, or an empty one when it
// failed.
inline PixState read_image(ImageHandle *handle, Input order, Rows *kept)
{
    handle->name_is_exact = handle->file_name[0] == '/' ? 1 : 0;
    const bool opened = imageReadOpen(handle) == 1;
    const std::string wrong = opened ? image_disagrees(handle) : failed_open_holds(handle);
    fputs(wrong.c_str(), stderr);
    assert(wrong.empty());
    const PixState state = opened ? *handle->priv->state : PixState{};
    for (size_t i = 0; opened && i < order.size(); ++i) {
        read_row(handle, order[i], kept);
    }
    assert(handle->close_proc(handle) == 0 && vyn__err == 0);
    return state;
}
