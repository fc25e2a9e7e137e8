// What holds for every image that opened and for every open that failed, whatever the files hold.
// Tests and fuzz targets ask the same functions.
#pragma once

#include "fileset/state.h"
#include "standin/standin.h"

#include <string.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

// Descriptors in use.
inline auto open_descriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// The samples of a whole row in the row buffers of an image, channel after channel.
inline std::vector<int32_t> samples(const PixState &state, void *const *rows)
{
    std::vector<int32_t> all;
    for (const PixKind kind : PIX_KINDS) {
        for (int i = 0; state.plane[kind].present && i < PIX_FACTS[kind].buffers; ++i, ++rows) {
            const auto *bytes = static_cast<const uint8_t *>(*rows);
            const auto *depths = static_cast<const int32_t *>(*rows);
            kind == PIX_DEPTH ? all.insert(all.end(), depths, depths + state.width)
                              : all.insert(all.end(), bytes, bytes + state.width);
        }
    }
    return all;
}

// Takes conditions, each with a sentence about it. Returns "not true: " and the first sentence
// whose condition is false, or "" when all are true.
inline std::string first_untrue(std::initializer_list<std::pair<bool, const char *>> claims)
{
    for (const auto &[holds, sentence] : claims) {
        if (!holds) {
            return std::string("not true: ") + sentence;
        }
    }
    return "";
}

inline bool are_colours(const ImageHandle *handle)
{
    return std::equal(handle->red_primary, handle->red_primary + 3, CLR_def_red_primary()) &&
           std::equal(handle->green_primary, handle->green_primary + 3, CLR_def_green_primary()) &&
           std::equal(handle->blue_primary, handle->blue_primary + 3, CLR_def_blue_primary()) &&
           std::equal(handle->white_point, handle->white_point + 3, CLR_def_white_point());
}

// Returns what is wrong with an image right after an open that returned 1, or "".
inline std::string image_disagrees(const ImageHandle *handle)
{
    const PixState &state = *handle->priv->state;
    const ImageInfo &info = *handle->info;
    const bool colour = state.plane[PIX_COLOUR].present;
    const bool matte = state.plane[PIX_MATTE].present;
    const bool depth = state.plane[PIX_DEPTH].present;
    const int32_t rows = info.channel_count + info.matte_count + info.aux_count;
    bool streams = true;
    for (int i = 0; i < 6; ++i) {
        const PixPlane &plane = state.plane[i / 2];
        const bool used = plane.present && static_cast<uint32_t>(i % 2) < state.fields;
        streams = streams && (plane.file[i % 2].fp != nullptr) == used;
    }
    const ImageWindow window = {0, state.width - 1, 0, state.height - 1};
    const auto *texts = std::begin(handle->description);
    return first_untrue({
        {vyn__err == 0 || vyn__err == -5 || vyn__err == -16, "the code is that of a warning"},
        {handle->image_count == 1 && state.mode == 'r' && state.row == 0, "no row has been read"},
        {colour || (matte && !depth), "the image has colour, or is a matte alone"},
        {info.channel_count == (colour ? 3 : 0) && info.matte_count == matte &&
             info.aux_count == depth && (!depth || info.aux_width == 31),
         "the counts are those of the planes"},
        {streams, "just the streams of the planes are open"},
        {state.width >= 0 && state.width <= 16383 && state.height >= 0 && state.height <= 16383,
         "the size is in range"},
        {info.width == state.width && info.height == state.height &&
             memcmp(&info.data_window, &window, sizeof window) == 0 &&
             memcmp(&info.display_window, &window, sizeof window) == 0,
         "the sizes are the same"},
        {std::find(state.chan, state.chan + rows + 1, nullptr) == state.chan + rows,
         "there is a row buffer for each channel, and a null"},
        {info.usage == 1 && info.orientation == 2, "usage and orientation are the module's"},
        {info.gamma == FMT_def_input_gamma() && are_colours(handle), "the colours are the host's"},
        {strcmp(info.channel_format, "RGB") == 0, "the channels are RGB"},
        {info.format_label && handle->compression &&
             std::find(texts, texts + 7, nullptr) == texts + 7,
         "every text is there"},
    });
}

// A failed open holds nothing: "", or what is left after an open that returned 0 and made a state.
// It asks for a scanline all the same, which leaves a message.
inline std::string failed_open_holds(const ImageHandle *handle)
{
    PixState *state = handle->priv->state;
    bool empty = true;
    for (const PixPlane &plane : state->plane) {
        empty = empty && !plane.file[0].fp && !plane.file[1].fp && !plane.file[0].buffer &&
                !plane.file[1].buffer && !plane.name && !plane.present && !plane.starts;
    }
    const int code = vyn__err;
    void **rows = nullptr;
    return first_untrue({
        {code == -5 || code == -8 || code == -10 || code == -20, "the code is that of a failure"},
        {empty, "no plane has a stream or a name"},
        {!state->chan && !state->table, "there are neither row buffers nor a table"},
        {handle->scanline_proc(state, 0, &rows) == -2 && !rows, "there is no scanline"},
    });
}
