// Finding and opening the files of an image. Companions are left to fileset/companions. Headers are
// left to the opens of read/ and write/, except the one word that tells a matte from a colour file.
#include "fileset/open.h"

#include "fileset/close.h"
#include "fileset/stream.h"
#include "host/messages.h"

#include <stdlib.h>

// The open of a main file.
struct PixMainOpen {
    PixState *state;
    PixPlane *plane;
    PixNames names; // after a search, the paths found
    const char *mode;
    bool writing;
    bool exact;     // the names are used as they are
    FILE *standard; // what the host's name means instead of a file, or null
};

// --- One attempt ----------------------------------------------------------------------------

static bool pix_open_single(PixMainOpen *open, const char *name)
{
    PixFile *file = &open->plane->file[0];
    file->fp = open->standard;
    return file->fp || pix_open_file(file, name, open->mode);
}

// A field name that was too long is empty: opening it fails with ENAMETOOLONG.
static bool pix_open_field(PixMainOpen *open, int field, const char *name)
{
    if (name[0] == '\0') {
        errno = ENAMETOOLONG;
        return false;
    }
    return pix_open_file(&open->plane->file[field], name, open->mode);
}

// --- The search -----------------------------------------------------------------------------

// Asks the host for the path of `name` under the search list, which may be null, and puts it in the
// name's place. A path that does not fit leaves the name empty. Returns the size of the path, or 0
// when the host has none.
static size_t pix_resolve(const PixMainOpen *open, const char *list, char *name)
{
    const char *path = open->exact ? name : vyn__build_handle(list, name, "");
    const size_t size = path ? strlen(path) + 1 : 0;
    if (size > PIX_NAME_SIZE) {
        name[0] = '\0';
    } else if (path) {
        memmove(name, path, size); // it may be the name itself
    }
    return size;
}

static bool pix_resolve_base(const PixMainOpen *open, const char *list, PixNames *names)
{
    const size_t size = pix_resolve(open, list, names->base);
    errno = size > PIX_NAME_SIZE ? ENAMETOOLONG : errno;
    return size > 0 && size <= PIX_NAME_SIZE;
}

// A field name that is too long becomes empty; opening it then fails with ENAMETOOLONG.
static bool pix_resolve_field(const PixMainOpen *open, const char *list, char *name)
{
    return name[0] == '\0' || pix_resolve(open, list, name) > 0;
}

// Closes the file that an attempt has opened. When writing, also removes it under `name`.
static void pix_give_up(PixMainOpen *open, const char *name)
{
    if (open->writing) {
        pix_discard_file(&open->plane->file[0], name);
    } else {
        pix_close_plane(open->plane, nullptr);
    }
}

// Tries the name as a single file. When the host has no path for one of the names, the file is
// closed again.
static bool pix_try_single(PixMainOpen *open, const char *list)
{
    PixNames found = open->names;
    if (!pix_resolve_base(open, list, &found) || !pix_open_single(open, found.base)) {
        return false;
    }
    if (pix_resolve_field(open, list, found.even) && pix_resolve_field(open, list, found.odd)) {
        open->names = found;
        return true;
    }
    pix_give_up(open, found.base);
    return false;
}

// Tries the name as a pair. Once the even file is open and the base name has a path, the pair is
// the image: without the odd file the even one stays open, which ends the search.
static bool pix_try_pair(PixMainOpen *open, const char *list)
{
    PixNames found = open->names;
    if (!pix_resolve_field(open, list, found.even) || !pix_open_field(open, 0, found.even)) {
        const int reason = errno;
        if (open->exact && !found.is_field && pix_open_field(open, 1, found.odd)) {
            errno = reason; // the odd file is there: the reason is that of the even file
        }
        return false;
    }
    if (!pix_resolve_base(open, list, &found)) {
        pix_give_up(open, found.even);
        return false;
    }
    if (!pix_resolve_field(open, list, found.odd) || !pix_open_field(open, 1, found.odd)) {
        return false;
    }
    open->names = found;
    open->state->fields = 2;
    return true;
}

// When writing, tries the name as a single file, under the search list. When reading, tries it both
// as a single file and as a pair, each without the list and then with it; a name that looks like a
// field's is tried as a pair first. An exact name is tried without the list only.
static bool pix_search(PixMainOpen *open)
{
    const char *list = open->exact ? nullptr : getenv("KV_IMG_DIR");
    if (open->writing) {
        return pix_try_single(open, list);
    }
    const char *const lists[] = {nullptr, list};
    const bool as_pairs[] = {open->names.is_field, !open->names.is_field};
    bool found = false;
    for (const bool as_pair : as_pairs) {
        for (int i = 0; i < (open->exact ? 1 : 2) && !open->plane->file[0].fp; ++i) {
            found = as_pair ? pix_try_pair(open, lists[i]) : pix_try_single(open, lists[i]);
        }
    }
    return found;
}

// Opens the main file. The image's name is that under which it is found; an exact name is saved
// before anything is opened.
static int pix_open_main(PixMainOpen *open)
{
    if (open->exact && pix_save_text(&open->plane->name, open->names.base)) {
        return PIX_NO_MEMORY;
    }
    if (!pix_search(open)) {
        return PIX_CANNOT_OPEN;
    }
    if (open->exact || pix_save_text(&open->plane->name, open->names.base) == PIX_OK) {
        return PIX_OK;
    }
    if (open->writing) { // without a name in the state nobody else could remove the file
        pix_discard_file(&open->plane->file[0], open->names.base);
    }
    return PIX_NO_MEMORY;
}

// --- The set --------------------------------------------------------------------------------

// Reads the `bits` word of the main file and returns the stream to the start of the file. Returns
// 0; or PIX_READ_FAILED, with errno and a report, when the stream cannot be positioned or read. The
// header is read whole, from its start: behind a seek into the middle of the buffer the C library
// would read the whole buffer again.
static int pix_read_bits(const PixMainOpen *open, uint16_t *bits)
{
    FILE *fp = open->plane->file[0].fp;
    uint8_t bytes[sizeof(PixHeader)];
    if (fseek(fp, 0, SEEK_SET) == 0 && fread(bytes, sizeof bytes, 1, fp) == 1 &&
        fseek(fp, 0, SEEK_SET) == 0) {
        *bits = pix_word(bytes + offsetof(PixHeader, bits));
        return PIX_OK;
    }
    const int reason = errno;
    ERR_report_errno(reason, open->state->fields == 2 ? open->names.even : open->names.base);
    errno = reason;
    return PIX_READ_FAILED;
}

// Everything but the report of a failure, whose reason is in errno.
static int pix_open_files(PixMainOpen *open, ImageHandle *handle)
{
    if (STR_length(handle->file_name) < 1) {
        return PIX_CANNOT_OPEN;
    }
    if (strlen(handle->file_name) >= PIX_NAME_SIZE) {
        errno = ENAMETOOLONG;
        return PIX_CANNOT_OPEN;
    }
    pix_field_names(handle->file_name, open->mode[0], &open->names);
    uint16_t bits = 0;
    int failure = pix_open_main(open);
    if (!failure && !open->writing) {
        failure = pix_read_bits(open, &bits);
    }
    if (!failure && bits != PIX_MATTE_BITS) {
        pix_open_companions(open->state, &open->names, open->mode, handle->info);
    }
    return failure;
}

int pix_open_file_set(ImageHandle *handle, PixState *state, const char *mode)
{
    PixMainOpen open = {state,          &state->plane[PIX_COLOUR],  {},     mode,
                        mode[0] == 'w', handle->name_is_exact != 0, nullptr};
    if (STR_compare(handle->file_name, open.writing ? "/dev/stdout" : "/dev/stdin") == 0) {
        open.standard = open.writing ? stdout : stdin;
    }
    const int failure = pix_open_files(&open, handle);
    if (failure) {
        PIX_FAIL(PIX_CANNOT_OPEN, PIX_MSG_CANNOT_OPEN, pix_shown_name(handle, state),
                 strerror(errno));
    }
    return failure;
}
