// imageReadOpen: opens the file set, reads and checks every header, and describes the image to the
// host.
#include "fileset/open.h"
#include "fileset/close.h"
#include "host/messages.h"
#include "module/capabilities.h"
#include "module/descriptor.h"
#include "read/read.h"

#include <initializer_list>

// --- Headers --------------------------------------------------------------------------------

// Reads the header of a plane (of a field pair both headers, which it joins) and leaves the streams
// at their first rows. False when a header is cut short or a size is too large; or, with a message,
// when the two fields do not belong together.
template <class Header>
[[nodiscard]] static bool pix_read_header(const PixState *state, PixKind kind, Header *header)
{
    const PixPlane *plane = &state->plane[kind];
    Header fields[2] = {};
    for (uint32_t field = 0; field < state->fields; ++field) {
        uint8_t bytes[sizeof(Header)];
        if (fread(bytes, sizeof bytes, 1, plane->file[field].fp) != 1) {
            return false;
        }
        pix_parse_header(bytes, &fields[field]);
    }
    *header = fields[0];
    if (state->fields == 2 && !pix_join_headers(fields[0], fields[1], header)) {
        PIX_REPORT(PIX_MSG_FIELDS_DIFFER, plane->name);
        return false;
    }
    return header->width <= PIX_MAX_SIZE && header->height <= PIX_MAX_SIZE;
}

// A companion that is open has a name. The other message is for a caller that opens one without.
static int pix_refuse_companion(PixLabel label, const char *name)
{
    vyn__err = PIX_CANNOT_OPEN;
    const char *reason = errno > 0 ? strerror(errno) : "";
    if (name) {
        PIX_REPORT(PIX_MSG_CORRUPT_COMPANION, pix_label(label), name, reason);
    } else {
        PIX_REPORT(PIX_MSG_CORRUPT_UNNAMED, pix_label(label), reason); // GCOV_EXCL_LINE: see above
    }
    return PIX_CANNOT_OPEN;
}

static void pix_drop_companion(PixState *state, PixKind kind, ImageInfo *info)
{
    pix_close_plane(&state->plane[kind], nullptr);
    info->*PIX_FACTS[kind].count = 0;
}

// Finds out what the main file holds. A matte has no companions. They are open only if the file was
// changed between the first look at its bits (pix_open_file_set) and this one.
static int pix_check_main_header(ImageHandle *handle, PixState *state, PixHeader *header)
{
    const char *name = pix_shown_name(handle, state);
    bool good = pix_read_header(state, PIX_COLOUR, header) &&
                (header->bits == PIX_COLOUR_BITS || header->bits == PIX_MATTE_BITS);
    state->plane[PIX_COLOUR].present = good;
    if (good && header->bits == PIX_MATTE_BITS) {
        pix_drop_companion(state, PIX_MATTE, handle->info);
        pix_drop_companion(state, PIX_DEPTH, handle->info);
        pix_move_main_file(state, PIX_MATTE);
        handle->info->channel_count = 0;
        handle->info->matte_count = 1;
    }
    if (good && header->width == PIX_SGI_MAGIC) {
        const char *extension = STR_extension(name);
        good = !extension || STR_compare(extension, ".rgb") != 0;
    }
    if (!good) {
        PIX_FAIL(PIX_BAD_HEADER, PIX_MSG_INVALID_HEADER, name);
    }
    return good ? PIX_OK : PIX_BAD_HEADER;
}

static int pix_check_matte_header(ImageHandle *handle, PixState *state, const PixHeader &image)
{
    PixHeader header = {};
    if (!pix_read_header(state, PIX_MATTE, &header) || header.bits != PIX_MATTE_BITS) {
        return pix_refuse_companion(PIX_LABEL_MATTE, state->plane[PIX_MATTE].name);
    }
    if (header.width != image.width || header.height != image.height) {
        PIX_FAIL(PIX_CANNOT_OPEN, PIX_MSG_MATTE_SIZE);
        pix_drop_companion(state, PIX_MATTE, handle->info);
    }
    return PIX_OK;
}

static int pix_check_depth_header(ImageHandle *handle, PixState *state, const PixHeader &image)
{
    PixDepthHeader header = {};
    if (!pix_read_header(state, PIX_DEPTH, &header)) {
        return pix_refuse_companion(PIX_LABEL_DEPTH, state->plane[PIX_DEPTH].name);
    }
    state->depth_kind = header.magic == PIX_MAGIC_DEPTH_INT ? PIX_DEPTH_INT : PIX_DEPTH_FLOAT;
    const bool known = header.magic == PIX_MAGIC_DEPTH_INT || header.magic == PIX_MAGIC_DEPTH_FLOAT;
    if (!known || header.width != image.width || header.height != image.height) {
        PIX_FAIL(PIX_CANNOT_OPEN, PIX_MSG_DEPTH_SIZE);
        pix_drop_companion(state, PIX_DEPTH, handle->info);
    }
    return PIX_OK;
}

// Checks the headers of the whole set; afterwards every stream stands at its first row.
static int pix_check_headers(ImageHandle *handle, PixState *state)
{
    PixHeader image = {};
    int failure = pix_check_main_header(handle, state, &image);
    if (!failure && image.bits == PIX_COLOUR_BITS && state->plane[PIX_MATTE].present) {
        failure = pix_check_matte_header(handle, state, image);
    }
    if (!failure && state->plane[PIX_DEPTH].present) {
        failure = pix_check_depth_header(handle, state, image);
    }
    state->width = image.width;
    state->height = image.height;
    return failure;
}

// --- Description ----------------------------------------------------------------------------

static int pix_describe_texts(ImageHandle *handle)
{
    int failure = PIX_OK;
    for (int i = 0; i < 7 && !failure; ++i) {
        failure = pix_save_text(&handle->description[i], pix_label(PIX_LABEL_DESCRIPTION[i]));
    }
    return failure ? failure
                   : pix_save_text(&handle->compression, pix_label(PIX_LABEL_COMPRESSION));
}

// Gives the image the label and the aspect of the first standard format of its size: first of those
// whose names begin with the handle's format name, then of those with "vorla", then of all.
static int pix_describe_format(const ImageHandle *handle, ImageInfo *info)
{
    info->width = info->data_window.x_max + 1;
    info->height = info->data_window.y_max + 1;
    for (const char *prefix : {handle->format_name, "vorla", ""}) {
        FMT_init(vyn__msg_cat);
        while (const FormatEntry *entry = FMT_info()) {
            if (strncmp(entry->name, prefix, strlen(prefix)) == 0 && entry->width == info->width &&
                entry->height == info->height) {
                info->aspect = entry->aspect;
                return pix_save_text(&info->format_label, entry->name);
            }
        }
    }
    info->aspect = static_cast<float>(info->width) / static_cast<float>(info->height);
    return pix_save_text(&info->format_label, pix_label(PIX_LABEL_FORMAT));
}

static int pix_describe_image(ImageHandle *handle, const PixState *state)
{
    ImageInfo *info = handle->info;
    info->data_window = {0, state->width - 1, 0, state->height - 1};
    info->display_window = info->data_window;
    info->channel_count = state->plane[PIX_COLOUR].present ? PIX_COLOUR_CHANNELS : 0;
    info->usage = PIX_USAGE;
    info->gamma = FMT_def_input_gamma();
    info->orientation = PIX_ORIENTATION;
    memcpy(handle->red_primary, CLR_def_red_primary(), sizeof handle->red_primary);
    memcpy(handle->green_primary, CLR_def_green_primary(), sizeof handle->green_primary);
    memcpy(handle->blue_primary, CLR_def_blue_primary(), sizeof handle->blue_primary);
    memcpy(handle->white_point, CLR_def_white_point(), sizeof handle->white_point);
    int failure = pix_describe_texts(handle);
    if (!failure) {
        failure = pix_describe_format(handle, info);
    }
    return failure ? failure
                   : pix_save_text(&info->channel_format, VYN_LITERAL_HARD_FORMAT_TYPE_RGB);
}

// --- The open -------------------------------------------------------------------------------

int32_t imageReadOpen(ImageHandle *handle)
{
    PixState *state = pix_attach_state(handle);
    if (!state) {
        return 0;
    }
    state->channel_choice = pix_choose_channels(handle, PIX_CAP_INPUT_CHANNELS);
    handle->image_count = 1;
    handle->info = static_cast<ImageInfo *>(pix_allocate(sizeof(ImageInfo)));
    if (!handle->info) {
        return 0;
    }
    vyn__init_ifd(handle);
    handle->scanline_proc = pix_read_scanline;
    handle->close_proc = pix_close;
    if (pix_open_file_set(handle, state, "r") || pix_check_headers(handle, state) ||
        pix_describe_image(handle, state)) {
        pix_fail_open(state);
        return 0;
    }
    pix_start_table(state);
    state->chan = vyn__chan_alloc(handle->info, state->width, handle->format_name);
    return state->chan ? 1 : -1;
}
