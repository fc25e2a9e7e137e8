// Which files make a picture, told from its name by the module's own rules: one main file or two
// fields, a matte and a depth in the directories "mask" and "depth" beside the main file's.
#pragma once

#include <string>
#include <vector>

using Names = std::vector<std::string>;

// Whether there is more to the name than this end, in letters of either case.
[[nodiscard]] bool ends_in(const std::string &name, const std::string &end);

// Whether both names lead to one file that is there.
[[nodiscard]] bool is_same_file(const std::string &one, const std::string &other);

// True unless the name is known to be no file's: what cannot be looked at may be there.
[[nodiscard]] bool may_exist(const std::string &path);

// The part of a path behind its last "/", and the directory before it ("." without one).
[[nodiscard]] std::string file_part(const std::string &path);
[[nodiscard]] std::string directory_of(const std::string &path);

// The name of the same file without empty and "." directories, and with the true path of a
// directory that ends in "..": where the companions are is told from the names of the last two
// directories.
[[nodiscard]] std::string plain_name(const std::string &name);

// Names that a picture has if it is stored as two fields.
struct FieldNames {
    std::string base;
    std::string even;
    std::string odd;
    bool is_field = false; // the name itself is that of a field
};

[[nodiscard]] FieldNames field_names(const std::string &name);

enum FileKind { KIND_MAIN, KIND_MATTE, KIND_DEPTH };
constexpr FileKind KINDS[] = {KIND_MAIN, KIND_MATTE, KIND_DEPTH};
constexpr FileKind COMPANIONS[] = {KIND_MATTE, KIND_DEPTH};
constexpr const char *KIND_NAMES[] = {"colour", "matte", "depth"}; // by FileKind

// The companion of the file `path`; "" when its name is too long.
[[nodiscard]] std::string companion_path(const std::string &path, FileKind kind);

// The paths of a picture: one of each kind, or two, the even field first. Standard input has no
// companions; otherwise their paths are given whether they exist or not.
struct FileSet {
    bool fields = false;
    Names paths[3]; // by FileKind
};

// Finds the main file of the picture `name`, with `search` also in the directories of KV_IMG_DIR.
// When there is none, the result is made from the name, as two fields if one of those is there.
[[nodiscard]] FileSet find_files(const std::string &name, bool search);
