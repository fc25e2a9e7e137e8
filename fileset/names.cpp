// The field rule and the companion rule.
#include "fileset/names.h"

#include "host/messages.h"

#include <stdlib.h>
#include <sys/stat.h>

// --- Field files ----------------------------------------------------------------------------
// "shot.pix" is stored as "shot.pix.e" and "shot.pix.o", and "shot.7", which ends in a frame
// number, as "shot.7e" and "shot.7o".

static bool pix_is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// Returns how many of the first `end` bytes stand before a "." that is followed by nothing but
// digits, or -1 without such a ".".
static ptrdiff_t pix_before_dot(const char *name, size_t end)
{
    while (end > 0 && pix_is_digit(name[end - 1])) {
        --end;
    }
    return end > 0 && name[end - 1] == '.' ? static_cast<ptrdiff_t>(end - 1) : -1;
}

// Makes `name` of the first `length` bytes of `base`, a separator and a letter, or an empty name
// when that does not fit.
static void pix_make_field_name(char *name, const char *base, size_t length, const char *separator,
                                char letter)
{
    const int size = snprintf(name, PIX_NAME_SIZE, "%.*s%s%c", static_cast<int>(length), base,
                              separator, letter);
    if (size < 0 || static_cast<size_t>(size) >= PIX_NAME_SIZE) {
        name[0] = '\0';
    }
}

void pix_field_names(const char *name, char mode, PixNames *names)
{
    size_t length = strlen(name);
    names->is_field = false;
    if (mode == 'w') {
        memcpy(names->base, name, length + 1);
        memcpy(names->even, name, length + 1);
        memcpy(names->odd, name, length + 1);
        return;
    }
    const char last = name[length - 1];
    const char *separator = ".";
    if (last == 'e' || last == 'o') {
        const ptrdiff_t dot = pix_before_dot(name, length - 1);
        if (dot >= 0) {
            names->is_field = true;
            const bool numbered = static_cast<size_t>(dot) + 1 < length - 1;
            separator = numbered ? "" : ".";
            length = numbered ? length - 1 : static_cast<size_t>(dot);
        }
    } else if (pix_is_digit(last) && pix_before_dot(name, length) >= 0) {
        separator = "";
    }
    memcpy(names->base, name, length);
    names->base[length] = '\0';
    pix_make_field_name(names->even, name, length, separator, 'e');
    pix_make_field_name(names->odd, name, length, separator, 'o');
}

// --- Companions -----------------------------------------------------------------------------
// "jobs/renders/shot.pix" has its matte in "jobs/mask/shot.pix": a directory beside the file's own.

static const char *pix_directory_label(int kind)
{
    switch (kind) {
    case PIX_COMPANION_DEPTH:
        return pix_label(PIX_LABEL_DEPTH);
    case PIX_COMPANION_MATTE:
        return pix_label(PIX_LABEL_MATTE);
    default:
        abort();
    }
}

// True when something of that name is there, or a directory has been made; else errno says why not.
static bool pix_have_directory(const char *path)
{
    struct stat entry;
    return stat(path, &entry) == 0 || mkdir(path, 0777) == 0;
}

// The last '/' among the first `length` bytes, or null.
static const char *pix_last_slash(const char *path, size_t length)
{
    return static_cast<const char *>(memrchr(path, '/', length));
}

const char *pix_companion_path(const char *path, const char *mode, int kind)
{
    static char companion[PIX_NAME_SIZE];
    if (STR_compare(path, "/dev/stdin") == 0 || STR_compare(path, "/dev/stdout") == 0) {
        return nullptr;
    }
    const char *label = pix_directory_label(kind);
    const char *last = pix_last_slash(path, strlen(path));
    const char *above = last ? pix_last_slash(path, static_cast<size_t>(last - path)) : nullptr;

    // The directory is `parent` (the first bytes of it), a separator and the label.
    const char *file = last ? last + 1 : path;
    const char *parent = "..";
    int parent_length = 2;
    const char *separator = "/";
    if (last) {
        parent = path;
        parent_length = above ? static_cast<int>(above - path) : 0;
        separator = above || last == path ? "/" : "";
    }
    const int directory_length =
        snprintf(companion, sizeof companion, "%.*s%s%s", parent_length, parent, separator, label);
    if (directory_length < 0 ||
        static_cast<size_t>(directory_length) + 1 + strlen(file) >= sizeof companion) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    if (STR_compare(mode, "w") == 0 && !pix_have_directory(companion)) {
        return nullptr;
    }
    char *end = companion + directory_length;
    *end = '/';
    memcpy(end + 1, file, strlen(file) + 1);
    return companion;
}
