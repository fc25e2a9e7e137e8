// The names of the files of an image, made from the host's name: field files lie beside it,
// companions in sibling directories. Opening the files is left to fileset/open.
#pragma once

#include <stddef.h>

constexpr size_t PIX_NAME_SIZE = 1024; // of every name buffer, terminator included

// Kinds of companion file.
enum PixCompanion { PIX_COMPANION_DEPTH = 0, PIX_COMPANION_MATTE = 1 };

// The names of an image. A field name that is too long for its buffer is empty.
struct PixNames {
    char base[PIX_NAME_SIZE]; // of the image, without a field suffix; may be empty
    char even[PIX_NAME_SIZE];
    char odd[PIX_NAME_SIZE];
    bool is_field; // the name given was a field file's
};

// Derives the names from the host's `name`, 1 to PIX_NAME_SIZE - 1 bytes long, for mode 'r' or 'w'.
void pix_field_names(const char *name, char mode, PixNames *names);

// Returns the path of a colour or field file's companion, valid until the next call for any image.
// With mode "w" makes the companion's directory when that is missing. Returns null for a standard
// stream; or, with errno set, when the path does not fit or the directory cannot be made. A `kind`
// that is not a PixCompanion ends the process.
[[nodiscard]] const char *pix_companion_path(const char *path, const char *mode, int kind);
