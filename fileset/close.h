// Letting go of a file set: at close, when an open fails, and when a companion is dropped.
#pragma once

#include "fileset/state.h"

// Closes the files of a plane; the image goes on without it. The name stays. A file that does not
// close is reported under `name` with PIX_WRITE_FAILED, or, when that is null, not at all. Keeps
// errno.
void pix_close_plane(PixPlane *plane, const char *name);

// Closes a file and removes it under `name`, its own, which this open has just created or emptied,
// if that is a regular file and no link to one. A standard stream is neither closed nor removed; a
// file that is not open is left alone. Keeps errno.
void pix_discard_file(PixFile *file, const char *name);

// Ends a failed open: closes all files and leaves a state that claims no data and no rows, so that
// any later call on it does no harm.
void pix_fail_open(PixState *state);

// The close procedure. Closes everything, returns the row buffers of an image that was read, and
// has the handle destroyed. A null handle does nothing.
extern "C" int32_t pix_close(ImageHandle *handle);
