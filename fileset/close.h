// Closing a file set: at the host's close, when an open fails, and when a companion is dropped.
#pragma once

#include "fileset/state.h"

// Closes the files of a plane; the image stays open without the plane, which keeps its name. A
// failure to close a file is reported under `name` with PIX_WRITE_FAILED; when `name` is null, it
// is not reported. Keeps errno.
void pix_close_plane(PixPlane *plane, const char *name);

// Closes a file that this open has just created or emptied, and removes it under `name`, its own
// name, if that is a regular file and not a link. A standard stream is neither closed nor removed.
// A file that is not open is left as it is. Keeps errno.
void pix_discard_file(PixFile *file, const char *name);

// Ends a failed open: closes all files and empties the state, which then has no planes and no rows,
// so that any later call on the state does no harm.
void pix_fail_open(PixState *state);

// The close procedure. Closes everything, returns the row buffers of an image that was read, and
// has the handle destroyed. A null handle does nothing.
extern "C" int32_t pix_close(ImageHandle *handle);
