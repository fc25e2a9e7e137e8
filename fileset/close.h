// Letting go of a file set: at close, when an open fails, and when a companion is dropped.
#pragma once

#include "fileset/state.h"

// What happens to a stream beside being closed.
enum PixRelease {
    PIX_RELEASE_QUIETLY,   // a failure to close is nobody's concern
    PIX_RELEASE_REPORTING, // it is reported, with PIX_WRITE_FAILED
    PIX_RELEASE_REMOVING,  // it is not, and the file goes too if it is a regular file
};

// Closes the streams of all kinds and frees their names, in the order colour, matte, depth, and
// then what else the state owns, and leaves every slot null. The process's standard streams are
// left open. `file_name` stands in a report for the name of a main file that is its image's matte
// or depth.
void pix_release_files(PixState *state, PixRelease how, const char *file_name);

// Closes the streams of one kind; the image goes on without it. The name stays. Keeps errno.
void pix_drop_kind(PixState *state, PixKind kind);

// Closes the stream in `slot` and removes the file `name`, which it has just created or emptied, if
// that is a regular file and no link to one. A standard stream is neither closed nor removed. Keeps
// errno.
void pix_discard_stream(FILE **slot, const char *name);

// Ends a failed open: releases the files and leaves a state that claims no data and no rows, so
// that any later call on it does no harm.
void pix_fail_open(PixState *state, PixRelease how);

// The close procedure. Closes everything, returns the row buffers of an image that was read, and
// has the handle destroyed. A null handle does nothing.
extern "C" int32_t pix_close(ImageHandle *handle);
