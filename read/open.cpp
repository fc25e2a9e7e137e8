// imageReadOpen: opens the file set, reads and checks every header, and describes the image to the
// host.
#include "fileset/open.h"
#include "fileset/close.h"
#include "format/depth.h"
#include "format/rows.h"
#include "host/capabilities.h"
#include "host/messages.h"
#include "module/capabilities.h"
#include "module/descriptor.h"
#include "read/position.h"
#include "read/read.h"

// --- Headers --------------------------------------------------------------------------------

// Reads the header of one kind of file; of a field pair, both headers, joined, and keeps the sizes
// of the fields of the main file. Nonzero when one is short, or, with a message, when the two do
// not belong together.
template <class Header>
[[nodiscard]] static int pix_read_kind(PixState *state, PixKind kind, Header *header)
{
    const PixKindSlots slots = pix_kind_slots(state, kind);
    if (!state->fields) {
        return pix_read_header(*slots.streams[0], header);
    }
    Header even = {};
    Header odd = {};
    if (pix_read_header(*slots.streams[1], &even) != 0 ||
        pix_read_header(*slots.streams[2], &odd) != 0) {
        return 1;
    }
    if (pix_join_headers(even, odd, header) != 0) {
        PIX_REPORT(PIX_MSG_FIELDS_DIFFER, *slots.name);
        return 1;
    }
    if (kind == PIX_KIND_COLOUR) {
        state->field[0].width = even.width;
        state->field[1].width = odd.width;
        state->field[0].height = static_cast<int16_t>(even.height);
        state->field[1].height = static_cast<int16_t>(odd.height);
    }
    return 0;
}

template <class Header>
[[nodiscard]] static bool pix_is_too_large(const Header &header)
{
    return header.width > PIX_MAX_SIZE || header.height > PIX_MAX_SIZE;
}

static int pix_refuse_header(const ImageHandle *handle, const PixState *state)
{
    PIX_FAIL(PIX_BAD_HEADER, PIX_MSG_INVALID_HEADER, pix_shown_name(handle, state));
    return 1;
}

static int pix_refuse_companion(PixLabel label, const char *name)
{
    vyn__err = PIX_CANNOT_OPEN;
    const char *reason = errno > 0 ? strerror(errno) : "";
    if (name) {
        PIX_REPORT(PIX_MSG_CORRUPT_COMPANION, pix_label(label), name, reason);
    } else {
        PIX_REPORT(PIX_MSG_CORRUPT_UNNAMED, pix_label(label), reason);
    }
    return 1;
}

static int pix_refuse_no_memory()
{
    PIX_FAIL(PIX_NO_MEMORY, PIX_MSG_NO_MEMORY);
    return 1;
}

// The main file is a matte: makes its streams the matte's. Companions are open only if the file has
// changed since its first look.
static void pix_make_matte_only(PixState *state, ImageInfo *info)
{
    pix_drop_kind(state, PIX_KIND_MATTE);
    pix_drop_kind(state, PIX_KIND_DEPTH);
    const PixKindSlots colour = pix_kind_slots(state, PIX_KIND_COLOUR);
    const PixKindSlots matte = pix_kind_slots(state, PIX_KIND_MATTE);
    for (int slot = 0; slot < 3; ++slot) {
        *matte.streams[slot] = *colour.streams[slot];
        *colour.streams[slot] = nullptr;
    }
    state->has_matte = 1;
    info->channel_count = 0;
    info->matte_count = 1;
    info->aux_count = 0;
}

static int pix_check_main_header(ImageHandle *handle, PixState *state, PixHeader *header)
{
    if (pix_read_kind(state, PIX_KIND_COLOUR, header) != 0 || pix_is_too_large(*header)) {
        return pix_refuse_header(handle, state);
    }
    if (header->bits == PIX_COLOUR_BITS) {
        state->has_colour = 1;
    } else if (header->bits == PIX_MATTE_BITS) {
        pix_make_matte_only(state, handle->info);
    } else {
        return pix_refuse_header(handle, state);
    }
    if (header->width == PIX_SGI_MAGIC) {
        const char *extension = STR_extension(pix_shown_name(handle, state));
        if (extension && STR_compare(extension, ".rgb") == 0) {
            return pix_refuse_header(handle, state);
        }
    }
    return 0;
}

static int pix_check_matte_header(ImageHandle *handle, PixState *state, const PixHeader &image)
{
    PixHeader header = {};
    if (pix_read_kind(state, PIX_KIND_MATTE, &header) != 0 || pix_is_too_large(header) ||
        header.bits != PIX_MATTE_BITS) {
        return pix_refuse_companion(PIX_LABEL_MATTE, state->matte_name);
    }
    if (header.width != image.width || header.height != image.height) {
        PIX_FAIL(PIX_CANNOT_OPEN, PIX_MSG_MATTE_SIZE);
        pix_drop_kind(state, PIX_KIND_MATTE);
        handle->info->matte_count = 0;
    }
    return 0;
}

static int pix_check_depth_header(ImageHandle *handle, PixState *state, const PixHeader &image)
{
    PixDepthHeader header = {};
    if (pix_read_kind(state, PIX_KIND_DEPTH, &header) != 0 || pix_is_too_large(header)) {
        return pix_refuse_companion(PIX_LABEL_DEPTH, state->depth_name);
    }
    const bool fits = header.width == image.width && header.height == image.height;
    if (fits && header.magic == PIX_MAGIC_DEPTH_INT) {
        state->depth_kind = PIX_DEPTH_INT;
    } else if (fits && header.magic == PIX_MAGIC_DEPTH_FLOAT) {
        state->depth_kind = PIX_DEPTH_FLOAT;
    } else {
        PIX_FAIL(PIX_CANNOT_OPEN, PIX_MSG_DEPTH_SIZE);
        pix_drop_kind(state, PIX_KIND_DEPTH);
        handle->info->aux_count = 0;
        return 0;
    }
    state->depth_sample_size = PIX_DEPTH_SAMPLE_SIZE;
    return 0;
}

// Checks the headers of the whole set; afterwards every stream stands at its first row.
static int pix_check_headers(ImageHandle *handle, PixState *state)
{
    PixHeader image = {};
    if (pix_check_main_header(handle, state, &image) != 0) {
        return 1;
    }
    if (state->has_colour && state->has_matte &&
        pix_check_matte_header(handle, state, image) != 0) {
        return 1;
    }
    if (state->has_colour && state->has_depth &&
        pix_check_depth_header(handle, state, image) != 0) {
        return 1;
    }
    state->width = image.width;
    state->height = image.height;
    return 0;
}

// --- Description ----------------------------------------------------------------------------

static void pix_describe_geometry(const PixState *state, ImageInfo *info)
{
    info->data_window = {0, state->width - 1, 0, state->height - 1};
    info->display_window = info->data_window;
    info->channel_count = state->has_colour ? PIX_COLOUR_CHANNELS : 0;
    info->usage = imageUsage;
    info->gamma = FMT_def_input_gamma();
    info->orientation = imageOrientation;
}

static void pix_describe_colours(ImageHandle *handle)
{
    memcpy(handle->red_primary, CLR_def_red_primary(), sizeof handle->red_primary);
    memcpy(handle->green_primary, CLR_def_green_primary(), sizeof handle->green_primary);
    memcpy(handle->blue_primary, CLR_def_blue_primary(), sizeof handle->blue_primary);
    memcpy(handle->white_point, CLR_def_white_point(), sizeof handle->white_point);
}

// Saves a string of the host's records. Nonzero, with a message, when memory is exhausted.
static int pix_save_text(char **slot, const char *text)
{
    *slot = STR_save(text);
    return *slot ? 0 : pix_refuse_no_memory();
}

static int pix_describe_texts(ImageHandle *handle)
{
    for (int i = 0; i < 7; ++i) {
        if (pix_save_text(&handle->description[i], pix_label(PIX_LABEL_DESCRIPTION[i])) != 0) {
            return 1;
        }
    }
    return pix_save_text(&handle->compression, pix_label(PIX_LABEL_COMPRESSION));
}

// Returns the first standard format of the image's size whose name begins with `prefix`, or null.
static const FormatEntry *pix_find_format(const ImageInfo *info, const char *prefix)
{
    const size_t length = strlen(prefix);
    FMT_init(vyn__msg_cat);
    while (const FormatEntry *entry = FMT_info()) {
        if (strncmp(entry->name, prefix, length) == 0 && entry->width == info->width &&
            entry->height == info->height) {
            return entry;
        }
    }
    return nullptr;
}

static int pix_describe_format(const ImageHandle *handle, ImageInfo *info)
{
    info->width = info->data_window.x_max - info->data_window.x_min + 1;
    info->height = info->data_window.y_max - info->data_window.y_min + 1;
    const char *const prefixes[] = {handle->format_name, "vorla", ""};
    for (const char *prefix : prefixes) {
        if (const FormatEntry *entry = pix_find_format(info, prefix)) {
            info->aspect = entry->aspect;
            return pix_save_text(&info->format_label, entry->name);
        }
    }
    info->aspect = static_cast<float>(info->width) / static_cast<float>(info->height);
    return pix_save_text(&info->format_label, pix_label(PIX_LABEL_FORMAT));
}

static int pix_describe_image(ImageHandle *handle, const PixState *state)
{
    ImageInfo *info = handle->info;
    pix_describe_geometry(state, info);
    pix_describe_colours(handle);
    return pix_describe_texts(handle) != 0 || pix_describe_format(handle, info) != 0 ||
           pix_save_text(&info->channel_format, VYN_LITERAL_HARD_FORMAT_TYPE_RGB) != 0;
}

// --- The open -------------------------------------------------------------------------------

static int pix_make_info(ImageHandle *handle)
{
    handle->image_count = 1;
    handle->info = static_cast<ImageInfo *>(ERR_malloc(sizeof(ImageInfo)));
    if (!handle->info) {
        vyn__err = PIX_NO_MEMORY;
        return 1;
    }
    vyn__init_ifd(handle);
    return 0;
}

int32_t imageReadOpen(ImageHandle *handle)
{
    PixState *state = pix_attach_state(handle);
    if (!state) {
        return 0;
    }
    state->channel_choice = pix_choose_channels(handle, PIX_CAP_INPUT_CHANNELS);
    if (pix_make_info(handle) != 0) {
        return 0;
    }
    handle->scanline_proc = pix_read_scanline;
    handle->close_proc = pix_close;
    if (pix_open_image(handle, state, "r", "/dev/stdin", stdin) != 0 ||
        pix_check_headers(handle, state) != 0 || pix_describe_image(handle, state) != 0) {
        pix_fail_open(state, PIX_RELEASE_QUIETLY);
        return 0;
    }
    pix_start_table(state);
    state->chan = vyn__chan_alloc(handle->info, state->width, handle->format_name);
    return state->chan ? 1 : -1;
}
