// The walk over the files of a set that closes them, and the close procedure.
#include "fileset/close.h"

#include "fileset/stream.h"
#include "host/messages.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

void pix_close_plane(PixPlane *plane, const char *name)
{
    const int kept = errno;
    for (PixFile &file : plane->file) {
        if (!pix_close_file(&file) && name) {
            PIX_FAIL(PIX_WRITE_FAILED, PIX_MSG_CANNOT_WRITE_FILE, name, strerror(errno));
        }
    }
    plane->present = false;
    errno = kept;
}

void pix_discard_file(PixFile *file, const char *name)
{
    const int kept = errno;
    const bool ours = file->fp && !pix_is_standard_stream(file->fp);
    (void)pix_close_file(file);
    struct stat entry;
    if (ours && lstat(name, &entry) == 0 && S_ISREG(entry.st_mode)) {
        (void)unlink(name);
    }
    errno = kept;
}

// Closes the whole set and releases what the state owns. Reports show the plane's name, or else
// `file_name`, for a main file that is its image's matte or depth. Without it nothing is reported.
static void pix_close_set(PixState *state, const char *file_name)
{
    for (PixPlane &plane : state->plane) {
        pix_close_plane(&plane, file_name && plane.name ? plane.name : file_name);
        free(plane.name);
        plane.name = nullptr;
        plane.starts = nullptr;
    }
    free(state->table);
    state->table = nullptr;
}

void pix_fail_open(PixState *state)
{
    pix_close_set(state, nullptr);
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
        pix_close_set(state, handle->file_name ? handle->file_name : "");
    }
    vyn__free_obj(handle);
    return vyn__err;
}
