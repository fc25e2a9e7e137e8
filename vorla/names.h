// Which files make a picture, told from its name by the module's own rules: one main file or two
// fields, a matte and a depth in the directories "mask" and "depth" beside the main file's.
#pragma once

#include <string>
#include <vector>

using Names = std::vector<std::string>;

// Whether the name ends in `end`, in upper or lower case, and is longer than it.
[[nodiscard]] bool ends_in(const std::string &name, const std::string &end);

// Whether both names lead to one file that is there.
[[nodiscard]] bool is_same_file(const std::string &one, const std::string &other);

// False only when it is certain that there is no file of this name.
[[nodiscard]] bool may_exist(const std::string &path);

// The part of a path behind its last "/", and the directory before it ("." without one).
[[nodiscard]] std::string file_part(const std::string &path);
[[nodiscard]] std::string directory_of(const std::string &path);

// The same path without empty and "." directories, and with the real path of a directory that ends
// in "..". This is needed because the module replaces the name of the last directory to find the
// companions.
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
