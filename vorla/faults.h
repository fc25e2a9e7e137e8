// A look at the files of a picture, to say in words what the module has against them.
#pragma once

#include "vorla/names.h"
#include "vorla/report.h"

#include <optional>

// What the file or the field pair of one kind says of itself.
struct Header {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t tag = 0; // bits a pixel; for depth the magic
};

struct Fault {
    ExitCode code;         // EXIT_IO when a file cannot be opened or read, else EXIT_DAMAGED
    bool refuses;          // the module refuses the picture for it; else it does without the kind
    std::string sentence;  // names the file, unless that is the main file alone
    bool unopened = false; // the file cannot be opened
};

// Finds what is wrong with the files of one kind, which must be there: that one cannot be opened,
// read or taken for what it should be, that two fields do not belong together, or that a companion
// does not fit the main file. Standard input, "/dev/stdin", is read without being moved.
[[nodiscard]] std::optional<Fault> find_fault(const FileSet &files, FileKind kind);

// The header of a kind in which there is no fault; zeros when it cannot be read.
[[nodiscard]] Header read_header(const FileSet &files, FileKind kind);

// True unless the name is known to be no file's: what cannot be looked at may be there.
[[nodiscard]] bool may_exist(const std::string &path);
