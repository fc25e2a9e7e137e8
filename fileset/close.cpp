// The walk over the streams of a file set, and the close procedure.
#include "fileset/close.h"

#include "host/messages.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

// Empties the slot and closes its stream. Nonzero, with errno, when the stream does not close.
static int pix_close_stream(FILE **slot)
{
    FILE *fp = *slot;
    *slot = nullptr;
    return fp && !pix_is_standard_stream(fp) && fclose(fp) != 0;
}

void pix_discard_stream(FILE **slot, const char *name)
{
    const int kept = errno;
    const bool ours = *slot && !pix_is_standard_stream(*slot);
    (void)pix_close_stream(slot);
    struct stat entry;
    if (ours && lstat(name, &entry) == 0 && S_ISREG(entry.st_mode)) {
        (void)unlink(name);
    }
    errno = kept;
}

void pix_drop_kind(PixState *state, PixKind kind)
{
    const int kept = errno;
    const PixKindSlots slots = pix_kind_slots(state, kind);
    for (FILE **slot : slots.streams) {
        (void)pix_close_stream(slot);
    }
    *slots.present = 0;
    errno = kept;
}

void pix_release_files(PixState *state, PixRelease how, const char *file_name)
{
    for (const PixKind kind : PIX_KINDS) {
        const PixKindSlots slots = pix_kind_slots(state, kind);
        const char *name = *slots.name ? *slots.name : file_name;
        for (FILE **slot : slots.streams) {
            if (how == PIX_RELEASE_REMOVING) {
                pix_discard_stream(slot, name);
            } else if (pix_close_stream(slot) != 0 && how == PIX_RELEASE_REPORTING) {
                PIX_FAIL(PIX_WRITE_FAILED, PIX_MSG_CANNOT_WRITE_FILE, name, strerror(errno));
            }
        }
        free(*slots.name);
        *slots.name = nullptr;
    }
    for (char *&buffer : state->buffers) {
        free(buffer);
        buffer = nullptr;
    }
    free(state->row_starts);
    state->row_starts = nullptr;
}

void pix_fail_open(PixState *state, PixRelease how)
{
    // A main file that has moved to its kind's slot takes its name along.
    for (const PixKind kind : PIX_KINDS) {
        const PixKindSlots slots = pix_kind_slots(state, kind);
        if (*slots.streams[0] && !*slots.name) {
            *slots.name = state->colour_name;
            state->colour_name = nullptr;
        }
    }
    pix_release_files(state, how, nullptr);
    state->has_colour = 0;
    state->has_matte = 0;
    state->has_depth = 0;
    state->fields = 0;
    state->width = 0;
    state->height = 0;
}

int32_t pix_close(ImageHandle *handle)
{
    if (!handle) {
        return 0;
    }
    PixState *state = handle->priv ? handle->priv->state : nullptr;
    vyn__err = PIX_OK;
    if (state) {
        if (state->mode == 'r') {
            vyn__chan_free(state->chan);
        }
        pix_release_files(state, PIX_RELEASE_REPORTING, handle->file_name);
    }
    vyn__free_obj(handle);
    return vyn__err;
}
