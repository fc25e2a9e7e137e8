// The field rule and the companion rule.
#include "fileset/names.h"

#include "host/messages.h"

#include <stdlib.h>
#include <sys/stat.h>

// --- Field files ----------------------------------------------------------------------------
// "shot.pix" is stored as "shot.pix.e" and "shot.pix.o", and "shot.7", which ends in a frame
// number, as "shot.7e" and "shot.7o".

// Makes a name of the first `length` bytes of `base`, a separator and a letter. One that does not
// fit is empty.
static void pix_make_name(char *name, const char *base, size_t length, const char *separator,
                          const char *letter)
{
    const int size = snprintf(name, PIX_NAME_SIZE, "%.*s%s%s", static_cast<int>(length), base,
                              separator, letter);
    if (size < 0 || static_cast<size_t>(size) >= PIX_NAME_SIZE) {
        name[0] = '\0';
    }
}

void pix_field_names(const char *name, char mode, PixNames *names)
{
    const size_t length = strlen(name);
    const char last = name[length - 1];
    const bool has_letter = last == 'e' || last == 'o';
    const size_t end = has_letter ? length - 1 : length; // of the frame number, if there is one
    size_t start = end;
    while (start > 0 && name[start - 1] >= '0' && name[start - 1] <= '9') {
        --start;
    }
    const bool reading = mode == 'r';
    const bool after_dot = reading && start > 0 && name[start - 1] == '.';
    const bool numbered = after_dot && start < end;
    names->is_field = after_dot && has_letter;
    size_t base = length;
    if (names->is_field) {
        base = numbered ? end : start - 1;
    }
    const char *separator = numbered || !reading ? "" : ".";
    pix_make_name(names->base, name, base, "", "");
    pix_make_name(names->even, name, base, separator, reading ? "e" : "");
    pix_make_name(names->odd, name, base, separator, reading ? "o" : "");
}

// --- Companions -----------------------------------------------------------------------------
// "jobs/renders/shot.pix" has its matte in "jobs/mask/shot.pix": a directory beside the file's own.

static const char *pix_directory_label(int kind)
{
    if (kind != PIX_COMPANION_DEPTH && kind != PIX_COMPANION_MATTE) {
        abort(); // GCOV_EXCL_LINE: the process ends before coverage is recorded
    }
    return pix_label(kind == PIX_COMPANION_DEPTH ? PIX_LABEL_DEPTH : PIX_LABEL_MATTE);
}

// True when something of that name is there, or a directory has been made; else errno says why not.
static bool pix_have_directory(const char *path)
{
    struct stat entry;
    return stat(path, &entry) == 0 || mkdir(path, 0777) == 0;
}

// The length of the part of the path before the name of the file's directory, its '/' included. For
// a file at the root, whose only '/' comes first, it is 1: the companions are below the root.
static size_t pix_parent_length(const char *path, const char *last)
{
    const char *above =
        static_cast<const char *>(memrchr(path, '/', static_cast<size_t>(last - path)));
    const char *end = last == path ? last : above;
    return end ? static_cast<size_t>(end - path) + 1 : 0;
}

const char *pix_companion_path(const char *path, const char *mode, int kind)
{
    static char companion[PIX_NAME_SIZE];
    if (STR_compare(path, "/dev/stdin") == 0 || STR_compare(path, "/dev/stdout") == 0) {
        return nullptr;
    }
    const char *label = pix_directory_label(kind);
    const char *last = strrchr(path, '/');
    const char *file = last ? last + 1 : path;
    const char *parent = last ? path : "../";
    const size_t parent_length = last ? pix_parent_length(path, last) : strlen(parent);
    const size_t directory_length = parent_length + strlen(label);
    if (directory_length + 1 + strlen(file) >= sizeof companion) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    (void)snprintf(companion, sizeof companion, "%.*s%s", static_cast<int>(parent_length), parent,
                   label);
    if (STR_compare(mode, "w") == 0 && !pix_have_directory(companion)) {
        return nullptr;
    }
    companion[directory_length] = '/';
    memcpy(companion + directory_length + 1, file, strlen(file) + 1);
    return companion;
}
