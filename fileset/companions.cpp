// Opening the matte and the depth of a main file that is open. A companion is stored like its main
// file: as one file or as two fields.
#include "fileset/open.h"

#include "fileset/close.h"
#include "fileset/stream.h"
#include "host/messages.h"

#include <initializer_list>
#include <stdlib.h>

// Opens one field's file of a companion.
static bool pix_open_companion_field(PixFile *file, const char *name, int companion)
{
    const char *path = pix_companion_path(name, "r", companion);
    return path && pix_open_file(file, path, "r");
}

// Opens one companion, or its pair of field files. False, with errno as the reason and nothing left
// open or named, when it cannot be opened.
static bool pix_open_companion(PixState *state, PixKind kind, const PixNames *names,
                               const char *mode)
{
    PixPlane *plane = &state->plane[kind];
    const int companion = PIX_FACTS[kind].companion;
    const char *path = pix_companion_path(names->base, mode, companion);
    if (!path) {
        return false;
    }
    plane->name = STR_save(path);
    if (!plane->name) {
        PIX_REPORT(PIX_MSG_NO_MEMORY);
        return false;
    }
    plane->present = state->fields == 1
                         ? pix_open_file(&plane->file[0], plane->name, mode)
                         : pix_open_companion_field(&plane->file[0], names->even, companion) &&
                               pix_open_companion_field(&plane->file[1], names->odd, companion);
    if (plane->present) {
        return true;
    }
    const int reason = errno;
    pix_close_plane(plane, nullptr);
    free(plane->name);
    plane->name = nullptr;
    errno = reason;
    return false;
}

// Warns that a companion cannot be made. The name is the main file's.
static void pix_warn_of_missing(PixKind kind, const char *name)
{
    const char *reason = strerror(errno);
    if (kind == PIX_MATTE) {
        PIX_FAIL(PIX_CANNOT_OPEN, PIX_MSG_NO_MATTE_FILE, name, reason);
    } else {
        PIX_FAIL(PIX_CANNOT_OPEN, PIX_MSG_NO_DEPTH_FILE, name, reason);
    }
}

void pix_open_companions(PixState *state, const PixNames *names, const char *mode, ImageInfo *info)
{
    const bool writing = mode[0] == 'w';
    if (writing && info->channel_count == 0) {
        return; // the main file is the image's matte or depth
    }
    for (const PixKind kind : {PIX_MATTE, PIX_DEPTH}) {
        int32_t *count = &(info->*PIX_FACTS[kind].count);
        if (state->channel_choice < PIX_FACTS[kind].least_choice ||
            state->channel_choice > PIX_CHANNELS_RGB_MATTE_Z) {
            *count = 0;
        } else if (!writing || *count == 1) {
            *count = pix_open_companion(state, kind, names, mode) ? 1 : 0;
            if (writing && *count == 0) {
                pix_warn_of_missing(kind, names->base);
            }
        }
    }
    if (info->aux_count == 1) {
        info->aux_width = 31;
    }
}
