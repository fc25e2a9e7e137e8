// A look at the headers of a picture's files, to say in words what the module has against them.
#pragma once

#include "vorla/names.h"

#include <cstdint>

enum FileKind { KIND_MAIN, KIND_MATTE, KIND_DEPTH };

// What the file or the field pair of one kind says of itself.
struct Header {
    std::string fault; // "" or a sentence; the other members are then not set
    int error = 0;     // the system's, when it is the reason
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t tag = 0; // bits a pixel; for depth the magic
};

// Reads the header of one kind of file, of a field pair the two joined. Standard input,
// "/dev/stdin", is read without being moved.
[[nodiscard]] Header read_header(const FileSet &files, FileKind kind);

// Says what in the files of one kind makes the module refuse the picture; "" when nothing does.
[[nodiscard]] std::string refused_header(const FileSet &files, FileKind kind);

// The same, and for companions what makes the module do without them.
[[nodiscard]] std::string header_fault(const FileSet &files, FileKind kind);

// "matte" or "depth".
[[nodiscard]] const char *kind_name(FileKind kind);

[[nodiscard]] const std::vector<std::string> &paths_of(const FileSet &files, FileKind kind);
