// imageWriteOpen: checks that the format can store the image described, creates the file set and
// writes its headers.
#include "fileset/open.h"
#include "fileset/close.h"
#include "host/messages.h"
#include "module/capabilities.h"
#include "write/write.h"

#include <algorithm>

// --- The description ------------------------------------------------------------------------

// Something that the format cannot store, and the message about it: the arguments are the format's
// name and, where the text shows it, the name of the channel format.
struct PixRefusal {
    bool holds;
    int number, severity;
    const char *text;
};

// Reports everything that the format cannot store. Returns 0, or PIX_UNSUPPORTED.
static int pix_check_description(const ImageHandle *handle)
{
    vyn__err = PIX_OK;
    if (handle->image_count != 1) {
        PIX_FAIL(PIX_UNSUPPORTED, PIX_MSG_MULTIPLE_IMAGES, handle->format_name);
    }
    const ImageInfo &info = *handle->info;
    const bool matte = info.matte_count != 0 && info.matte_count <= 1;
    const bool depth = info.aux_count != 0 && info.aux_count <= 1;
    const PixRefusal refusals[] = {
        {STR_compare(info.channel_format, VYN_LITERAL_HARD_FORMAT_TYPE_RGB) != 0,
         PIX_MSG_CHANNEL_FORMAT},
        {info.channel_type != 1, PIX_MSG_CHANNEL_TYPE},
        {info.channel_type == 1 && info.channel_width != 8, PIX_MSG_CHANNEL_WIDTH},
        {info.matte_count > 1, PIX_MSG_MULTIPLE_MATTES},
        {matte && info.matte_type != 1, PIX_MSG_MATTE_TYPE},
        {matte && info.matte_type == 1 && info.matte_width != 8, PIX_MSG_MATTE_WIDTH},
        {info.aux_count > 1, PIX_MSG_MULTIPLE_AUX},
        {depth && info.aux_width != 31, PIX_MSG_AUX_WIDTH},
    };
    for (const PixRefusal &refusal : refusals) {
        if (refusal.holds) {
            PIX_FAIL(PIX_UNSUPPORTED, refusal.number, refusal.severity, refusal.text,
                     handle->format_name, info.channel_format);
        }
    }
    return vyn__err;
}

// --- The files ------------------------------------------------------------------------------

// Decides what the image is written as. The main file of an image without colour is its matte, or
// else its depth.
static void pix_assign_kinds(PixState *state, const ImageInfo *info)
{
    if (info->channel_count == 0 && info->matte_count == 1) {
        pix_move_main_file(state, PIX_MATTE);
    } else if (info->channel_count == 0 && info->aux_count == 1) {
        pix_move_main_file(state, PIX_DEPTH);
    } else if (info->channel_count == PIX_COLOUR_CHANNELS) {
        state->plane[PIX_COLOUR].present = true;
    }
}

// Removes the files that a failed open has made. The main file has the image's name, whatever its
// kind; a companion its own.
static void pix_remove_files(PixState *state)
{
    const char *main = state->plane[PIX_COLOUR].name;
    for (PixPlane &plane : state->plane) {
        pix_discard_file(&plane.file[0], plane.name ? plane.name : main);
    }
}

// --- Headers --------------------------------------------------------------------------------

// Writes the header of a plane, in one write, unless the image does not have it. False when the
// write fails.
template <class Header>
[[nodiscard]] static bool pix_write_header(const PixPlane *plane, const Header &header)
{
    uint8_t bytes[sizeof(Header)];
    pix_format_header(header, bytes);
    return !plane->present || fwrite(bytes, sizeof bytes, 1, plane->file[0].fp) == 1;
}

static int pix_write_headers(const PixState *state, int64_t width, int64_t height)
{
    const PixHeader colour = {static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0,
                              static_cast<uint16_t>(height - 1), PIX_COLOUR_BITS};
    PixHeader matte = colour;
    matte.bits = PIX_MATTE_BITS;
    const PixDepthHeader depth = {PIX_MAGIC_DEPTH_INT, colour.width, colour.height};
    const bool written = pix_write_header(&state->plane[PIX_COLOUR], colour) &&
                         pix_write_header(&state->plane[PIX_MATTE], matte) &&
                         pix_write_header(&state->plane[PIX_DEPTH], depth);
    return written ? PIX_OK : PIX_WRITE_FAILED;
}

// Sets the state up for the first row and writes the headers with the low 16 bits of each size. The
// bounds of a window may be so far apart that the size does not fit an int32_t. Such a size is
// clamped in the state.
static int pix_start_files(const ImageHandle *handle, PixState *state)
{
    const ImageWindow &window = handle->info->data_window;
    const int64_t width = int64_t{window.x_max} - window.x_min + 1;
    const int64_t height = int64_t{window.y_max} - window.y_min + 1;
    state->width = static_cast<int32_t>(std::clamp<int64_t>(width, 0, INT32_MAX));
    state->height = static_cast<int32_t>(std::clamp<int64_t>(height, 0, INT32_MAX));
    state->mode = 'w';
    state->depth_kind = PIX_DEPTH_INT;
    pix_assign_kinds(state, handle->info);
    const int failure = pix_write_headers(state, width, height);
    if (failure) {
        PIX_FAIL(failure, PIX_MSG_CANNOT_WRITE_FILE, handle->file_name, strerror(errno));
    }
    return failure;
}

int32_t imageWriteOpen(ImageHandle *handle)
{
    if (pix_check_description(handle)) {
        return 0;
    }
    PixState *state = pix_attach_state(handle);
    if (!state) {
        return 0;
    }
    handle->scanline_proc = pix_write_scanline;
    handle->close_proc = pix_close;
    state->channel_choice = pix_choose_channels(handle, PIX_CAP_OUTPUT_CHANNELS);
    if (pix_open_file_set(handle, state, "w") || pix_start_files(handle, state)) {
        pix_remove_files(state);
        pix_fail_open(state);
        return 0;
    }
    return 1;
}
