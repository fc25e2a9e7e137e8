// Which files make a picture, told from its name as the module tells it: one main file or two
// fields, a matte and a depth in the directories "mask" and "depth" beside the main file's.
#pragma once

#include <string>
#include <vector>

// Whether there is more to the name than this end, in letters of either case.
[[nodiscard]] bool ends_in(const std::string &name, const std::string &end);

// Whether a file of that name can be opened for reading; errno says why not.
[[nodiscard]] bool is_readable(const std::string &path);

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

// The companion of the file `path` in the directory `label`, "mask" or "depth".
[[nodiscard]] std::string companion_path(const std::string &path, const char *label);

// The paths of a picture: one of each kind, or two, the even field first. Standard input has no
// companions; otherwise their paths are given whether they exist or not.
struct FileSet {
    bool fields = false;
    std::vector<std::string> main;
    std::vector<std::string> matte;
    std::vector<std::string> depth;
};

// Finds the main file of the picture `name`, with `search` also in the directories of KV_IMG_DIR.
// When there is none, the result is made from the name, as two fields if one of those is there.
[[nodiscard]] FileSet find_files(const std::string &name, bool search);
