// Opening a file set: from the host's name to open streams.
#pragma once

#include "fileset/state.h"

// Opens the main file, or the pair of field files, and the companions that the channel choice asks
// for, with fopen's `mode` "r" or "w". A stream that the caller has set in `colour_fp` serves as
// the main file. Sets the streams, names and flags of the state and the counts of mattes and
// auxiliary channels in the handle's ImageInfo; a companion that cannot be opened is left out.
// Returns 0; or 1 when the main file cannot be opened, named or told from a matte, with the reason
// in errno and whatever was opened left in the state.
[[nodiscard]] int32_t pix_open_file_set(ImageHandle *handle, PixState *state, const char *mode);

// The same for an open: `standard_name` means `standard_stream`, and a failure is reported. Returns
// 0 or 1.
[[nodiscard]] int pix_open_image(ImageHandle *handle, PixState *state, const char *mode,
                                 const char *standard_name, FILE *standard_stream);
