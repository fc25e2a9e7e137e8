// Finding and opening the files of an image. Companions are left to fileset/companions, and headers
// to the opens of read/ and write/, but for the one word that tells a matte from a colour file.
#include "fileset/open.h"

#include "fileset/close.h"
#include "fileset/companions.h"
#include "fileset/names.h"
#include "format/header.h"
#include "host/messages.h"

#include <stdlib.h>

enum PixAttempt { PIX_FOUND, PIX_MISSED, PIX_BROKEN };

// --- The main file --------------------------------------------------------------------------

static bool pix_open_single(PixState *state, const char *name, const char *mode)
{
    if (!state->colour_fp) { // else the caller has preset a standard stream
        state->colour_fp = pix_open_stream(state, name, mode);
    }
    return state->colour_fp != nullptr;
}

static bool pix_open_field(PixState *state, int field, const char *name)
{
    if (name[0] == '\0') {
        errno = ENAMETOOLONG;
        return false;
    }
    state->field[field].colour_fp = pix_open_stream(state, name, "r");
    return state->field[field].colour_fp != nullptr;
}

// Keeps the image's name in the state. Nonzero, with errno and a message, when memory is exhausted.
static int pix_save_name(PixState *state, const char *base)
{
    state->colour_name = STR_save(base);
    if (state->colour_name) {
        return 0;
    }
    PIX_FAIL(PIX_NO_MEMORY, PIX_MSG_NO_MEMORY);
    return 1;
}

static int pix_open_exact(PixState *state, const PixNames *names, const char *mode)
{
    if (pix_save_name(state, names->base) != 0) {
        return 1;
    }
    if (mode[0] == 'w') {
        return !pix_open_single(state, names->base, mode);
    }
    if (names->is_field) {
        if (!pix_open_field(state, 0, names->even)) {
            return !pix_open_single(state, names->base, mode);
        }
        state->fields = pix_open_field(state, 1, names->odd);
        return !state->fields;
    }
    if (pix_open_single(state, names->base, mode)) {
        return 0;
    }
    const bool even = pix_open_field(state, 0, names->even);
    const int reason = errno;
    const bool odd = pix_open_field(state, 1, names->odd);
    if (odd) {
        errno = reason; // if one is missing, it is the even one
    }
    state->fields = even && odd;
    return !state->fields;
}

// What the host answers when it is asked for a path.
enum PixPath { PIX_PATH_FITS, PIX_PATH_TOO_LONG, PIX_PATH_NONE };

// Asks the host for the path of `name` under the search list, which may be null. `path` is left
// empty when the answer does not fit.
static PixPath pix_resolve(const char *list, const char *name, char *path)
{
    const char *built = vyn__build_handle(list, name, "");
    if (!built) {
        return PIX_PATH_NONE;
    }
    const size_t length = strlen(built);
    if (length >= PIX_NAME_SIZE) {
        path[0] = '\0';
        return PIX_PATH_TOO_LONG;
    }
    memmove(path, built, length + 1);
    return PIX_PATH_FITS;
}

// The same for a field's name, which may itself not have fitted. One that does not fit is no
// failure until it is opened.
static bool pix_resolve_field(const char *list, const char *name, char *path)
{
    return name[0] == '\0' || pix_resolve(list, name, path) != PIX_PATH_NONE;
}

static bool pix_resolve_base(const char *list, const char *name, char *path)
{
    const PixPath answer = pix_resolve(list, name, path);
    if (answer == PIX_PATH_TOO_LONG) {
        errno = ENAMETOOLONG;
    }
    return answer == PIX_PATH_FITS;
}

static PixAttempt pix_try_single(PixState *state, const char *list, PixNames *names,
                                 const char *mode)
{
    const bool preset = state->colour_fp != nullptr;
    PixNames found = *names;
    if (!pix_resolve_base(list, names->base, found.base) ||
        !pix_open_single(state, found.base, mode)) {
        return PIX_MISSED;
    }
    if (pix_resolve_field(list, names->even, found.even) &&
        pix_resolve_field(list, names->odd, found.odd)) {
        *names = found;
        return PIX_FOUND;
    }
    if (mode[0] == 'w') {
        pix_discard_stream(&state->colour_fp, found.base);
    } else if (!preset) {
        pix_drop_kind(state, PIX_KIND_COLOUR);
    }
    return PIX_MISSED;
}

// Once the even file is open, the pair is the image, unless the host has no base name for it.
static PixAttempt pix_try_pair(PixState *state, const char *list, PixNames *names)
{
    PixNames found = *names;
    if (!pix_resolve_field(list, names->even, found.even) ||
        !pix_open_field(state, 0, found.even)) {
        return PIX_MISSED;
    }
    if (!pix_resolve_base(list, names->base, found.base)) {
        pix_drop_kind(state, PIX_KIND_COLOUR);
        return PIX_MISSED;
    }
    if (!pix_resolve_field(list, names->odd, found.odd) || !pix_open_field(state, 1, found.odd)) {
        return PIX_BROKEN;
    }
    state->fields = 1;
    state->colour_fp = nullptr; // a standard stream, of which the host had no single file
    *names = found;
    return PIX_FOUND;
}

// When writing, tries the name under the search list, as a single file. When reading, tries it as
// it is and then under the list, as a single file and as a pair: first as what the name looks like.
// Replaces the names by the paths found.
static PixAttempt pix_search(PixState *state, PixNames *names, const char *mode)
{
    const char *list = getenv("KV_IMG_DIR");
    if (mode[0] == 'w') {
        return pix_try_single(state, list, names, mode);
    }
    const char *const lists[] = {nullptr, list};
    const bool as_pairs[] = {names->is_field, !names->is_field};
    for (const bool as_pair : as_pairs) {
        for (const char *directories : lists) {
            const PixAttempt attempt = as_pair ? pix_try_pair(state, directories, names)
                                               : pix_try_single(state, directories, names, mode);
            if (attempt != PIX_MISSED) {
                return attempt;
            }
        }
    }
    return PIX_MISSED;
}

static int pix_open_searching(PixState *state, PixNames *names, const char *mode)
{
    if (pix_search(state, names, mode) != PIX_FOUND) {
        return 1;
    }
    if (pix_save_name(state, names->base) == 0) {
        return 0;
    }
    if (mode[0] == 'w') { // without a name in the state nobody else could remove it
        pix_discard_stream(&state->colour_fp, names->base);
    }
    return 1;
}

// Reads the bits a pixel of the main file. Nonzero, with errno and a report, when it cannot be
// read.
static int pix_read_main_bits(const PixState *state, const PixNames *names, uint16_t *bits)
{
    FILE *fp = state->fields ? state->field[0].colour_fp : state->colour_fp;
    if (pix_read_bits(fp, bits) == 0) {
        return 0;
    }
    const int reason = errno;
    ERR_report_errno(reason, state->fields ? names->even : names->base);
    errno = reason;
    return 1;
}

// --- The set --------------------------------------------------------------------------------

int32_t pix_open_file_set(ImageHandle *handle, PixState *state, const char *mode)
{
    if (STR_length(handle->file_name) < 1) {
        return 1;
    }
    if (strlen(handle->file_name) >= PIX_NAME_SIZE) {
        errno = ENAMETOOLONG;
        return 1;
    }
    PixNames names;
    pix_field_names(handle->file_name, mode[0], &names);
    const int failed = handle->name_is_exact ? pix_open_exact(state, &names, mode)
                                             : pix_open_searching(state, &names, mode);
    if (failed) {
        return 1;
    }
    if (mode[0] == 'w') {
        pix_open_write_companions(state, &names, handle->info);
        return 0;
    }
    uint16_t bits = 0;
    if (pix_read_main_bits(state, &names, &bits) != 0) {
        return 1;
    }
    if (bits != PIX_MATTE_BITS) {
        pix_open_read_companions(state, &names, handle->info);
    }
    return 0;
}

int pix_open_image(ImageHandle *handle, PixState *state, const char *mode,
                   const char *standard_name, FILE *standard_stream)
{
    if (STR_compare(handle->file_name, standard_name) == 0) {
        state->colour_fp = standard_stream;
    }
    if (pix_open_file_set(handle, state, mode) != 0) {
        PIX_FAIL(PIX_CANNOT_OPEN, PIX_MSG_CANNOT_OPEN, pix_shown_name(handle, state),
                 strerror(errno));
        return 1;
    }
    return 0;
}
