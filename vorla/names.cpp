// The search for the main file, and paths. The rules for fields and companions are linked from the
// module's folders.
#include "vorla/names.h"

#include "fileset/names.h"
#include "host/vyn.h"

#include <strings.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

// The set of a main file or of two fields.
FileSet make_set(const Names &files)
{
    FileSet set = {files.size() > 1, {files, {}, {}}};
    for (const std::string &file : files) {
        for (const FileKind kind : COMPANIONS) {
            if (file != "/dev/stdin") {
                set.paths[kind].push_back(companion_path(file, kind));
            }
        }
    }
    return set;
}

} // namespace

bool ends_in(const std::string &name, const std::string &end)
{
    return name.size() > end.size() &&
           strcasecmp(name.c_str() + name.size() - end.size(), end.c_str()) == 0;
}

bool is_same_file(const std::string &one, const std::string &other)
{
    std::error_code error;
    return fs::equivalent(one, other, error);
}

bool may_exist(const std::string &path)
{
    std::error_code error;
    return path.empty() || fs::symlink_status(path, error).type() != fs::file_type::not_found;
}

std::string file_part(const std::string &path)
{
    return path.substr(path.rfind('/') + 1); // npos + 1 is 0
}

std::string directory_of(const std::string &path)
{
    const std::string directory = fs::path(path).parent_path();
    return directory.empty() ? "." : directory;
}

std::string plain_name(const std::string &name)
{
    const fs::path path = name;
    fs::path directory;
    for (const fs::path &part : path.parent_path()) {
        if (part != ".") {
            directory /= part;
        }
    }
    if (directory.filename() == "..") {
        std::error_code error;
        const fs::path real = fs::canonical(directory, error);
        directory = error ? directory : real;
    }
    return directory / path.filename();
}

FieldNames field_names(const std::string &name)
{
    PixNames names = {};
    if (name.empty() || name.size() >= PIX_NAME_SIZE) {
        return {name, name, name, false};
    }
    pix_field_names(name.c_str(), 'r', &names);
    return {names.base, names.even, names.odd, names.is_field};
}

std::string companion_path(const std::string &path, FileKind kind)
{
    const char *companion = pix_companion_path(
        path.c_str(), "r", kind == KIND_MATTE ? PIX_COMPANION_MATTE : PIX_COMPANION_DEPTH);
    return companion ? companion : "";
}

FileSet find_files(const std::string &name, bool search)
{
    const FieldNames names = field_names(name);
    const auto main_files = [&](bool fields) {
        return fields ? Names{names.even, names.odd} : Names{names.base};
    };
    const char *const lists[] = {nullptr, search ? getenv("KV_IMG_DIR") : nullptr};
    for (const bool fields : {names.is_field, !names.is_field}) {
        for (const char *list : lists) {
            Names files = main_files(fields);
            for (std::string &file : files) {
                const char *path = vyn__build_handle(list, file.c_str(), "");
                file = path ? path : file;
            }
            if (access(files[0].c_str(), R_OK) == 0) {
                return make_set(files);
            }
        }
    }
    return make_set(main_files(access(names.odd.c_str(), R_OK) == 0));
}
