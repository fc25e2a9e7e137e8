// The search for the main file, and paths. The rules for fields and companions are linked from the
// module's folders.
#include "vorla/names.h"

#include "fileset/names.h"
#include "host/vyn.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace {

std::string resolve(const char *list, const std::string &name)
{
    const char *path = vyn__build_handle(list, name.c_str(), "");
    return path ? path : name;
}

FileSet make_set(const FieldNames &names, bool fields)
{
    FileSet set;
    set.fields = fields;
    set.paths[KIND_MAIN] = fields ? Names{names.even, names.odd} : Names{names.base};
    for (const std::string &path : set.paths[KIND_MAIN]) {
        for (const FileKind kind : COMPANIONS) {
            if (path != "/dev/stdin") {
                set.paths[kind].push_back(companion_path(path, kind));
            }
        }
    }
    return set;
}

bool is_readable(const std::string &path)
{
    return access(path.c_str(), R_OK) == 0;
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
    return std::filesystem::equivalent(one, other, error);
}

std::string file_part(const std::string &path)
{
    return path.substr(path.rfind('/') + 1); // npos + 1 is 0
}

std::string directory_of(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string plain_name(const std::string &name)
{
    std::string plain = name.starts_with('/') ? "/" : "";
    const std::string file = file_part(name);
    std::string last;
    for (size_t at = 0; at < name.size() - file.size();) {
        const size_t end = name.find('/', at);
        const std::string directory = name.substr(at, end - at);
        if (!directory.empty() && directory != ".") {
            last = directory;
            plain += directory + "/";
        }
        at = end + 1;
    }
    if (last == "..") {
        std::error_code error;
        const std::filesystem::path real = std::filesystem::canonical(plain, error);
        plain = error ? plain : (real / "").string();
    }
    return plain + file;
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

const char *kind_name(FileKind kind)
{
    return kind == KIND_MATTE ? "matte" : "depth";
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
    const char *const lists[] = {nullptr, search ? getenv("KV_IMG_DIR") : nullptr};
    for (const bool as_pair : {names.is_field, !names.is_field}) {
        for (const char *list : lists) {
            const FieldNames found = {resolve(list, names.base), resolve(list, names.even),
                                      resolve(list, names.odd)};
            if (is_readable(as_pair ? found.even : found.base)) {
                return make_set(found, as_pair);
            }
        }
    }
    return make_set(names, is_readable(names.odd));
}
