// Opening matte and depth beside a main file that is open. A companion is one file, or two fields
// when the main file is.
#include "fileset/companions.h"

#include "fileset/close.h"
#include "host/capabilities.h"
#include "host/messages.h"

#include <stdlib.h>

struct PixCompanionKind {
    PixKind kind;
    PixCompanion companion;
};

constexpr PixCompanionKind PIX_MATTE = {PIX_KIND_MATTE, PIX_COMPANION_MATTE};
constexpr PixCompanionKind PIX_DEPTH = {PIX_KIND_DEPTH, PIX_COMPANION_DEPTH};

static bool pix_open_companion_file(PixState *state, FILE **slot, const char *name,
                                    const char *mode, PixCompanion companion)
{
    const char *path = pix_companion_path(name, mode, companion);
    *slot = path ? pix_open_stream(state, path, mode) : nullptr;
    return *slot != nullptr;
}

// Opens one companion, or its pair of field files. False, with errno as the reason and nothing left
// open or named, when there is none to be had.
static bool pix_open_companion(PixState *state, const PixNames *names, const char *mode,
                               PixCompanionKind which)
{
    const PixKindSlots slots = pix_kind_slots(state, which.kind);
    const char *path = pix_companion_path(names->base, mode, which.companion);
    if (!path) {
        return false;
    }
    *slots.name = STR_save(path);
    if (!*slots.name) {
        PIX_REPORT(PIX_MSG_NO_MEMORY);
        return false;
    }
    bool open = false;
    if (state->fields) {
        open =
            pix_open_companion_file(state, slots.streams[1], names->even, mode, which.companion) &&
            pix_open_companion_file(state, slots.streams[2], names->odd, mode, which.companion);
    } else {
        *slots.streams[0] = pix_open_stream(state, path, mode);
        open = *slots.streams[0] != nullptr;
    }
    if (open) {
        *slots.present = 1;
        return true;
    }
    const int reason = errno;
    pix_drop_kind(state, which.kind);
    free(*slots.name);
    *slots.name = nullptr;
    errno = reason;
    return false;
}

static bool pix_wants_depth(const PixState *state)
{
    return state->channel_choice == PIX_CHANNELS_RGB_MATTE_Z;
}

static bool pix_wants_matte(const PixState *state)
{
    return state->channel_choice == PIX_CHANNELS_RGB_MATTE || pix_wants_depth(state);
}

void pix_open_read_companions(PixState *state, const PixNames *names, ImageInfo *info)
{
    info->matte_count = pix_wants_matte(state) && pix_open_companion(state, names, "r", PIX_MATTE);
    info->aux_count = pix_wants_depth(state) && pix_open_companion(state, names, "r", PIX_DEPTH);
    if (info->aux_count) {
        info->aux_width = 31;
    }
}

void pix_open_write_companions(PixState *state, const PixNames *names, ImageInfo *info)
{
    if (info->channel_count == 0) {
        return; // the main file is the image's matte or depth
    }
    if (!pix_wants_matte(state)) {
        info->matte_count = 0;
    } else if (info->matte_count == 1 && !pix_open_companion(state, names, "w", PIX_MATTE)) {
        PIX_FAIL(PIX_CANNOT_OPEN, PIX_MSG_NO_MATTE_FILE, names->base, strerror(errno));
        info->matte_count = 0;
    }
    if (!pix_wants_depth(state)) {
        info->aux_count = 0;
    } else if (info->aux_count == 1 && !pix_open_companion(state, names, "w", PIX_DEPTH)) {
        PIX_FAIL(PIX_CANNOT_OPEN, PIX_MSG_NO_DEPTH_FILE, names->base, strerror(errno));
        info->aux_count = 0;
    }
}
