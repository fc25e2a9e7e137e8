// The rules of names.h, and the search for the main file.
#include "vorla/names.h"

#include "host/vyn.h"

#include <strings.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace {

// The place of a "." that only digits follow among the first `end` bytes, or npos.
size_t dot_before_number(const std::string &name, size_t end)
{
    const size_t at = end == 0 ? std::string::npos : name.find_last_not_of("0123456789", end - 1);
    return at != std::string::npos && name[at] == '.' ? at : std::string::npos;
}

std::string resolve(const char *list, const std::string &name)
{
    const char *path = vyn__build_handle(list, name.c_str(), "");
    return path ? path : name;
}

// The names under one search list, which may be null.
FieldNames resolve_all(const char *list, const FieldNames &names)
{
    return {resolve(list, names.base), resolve(list, names.even), resolve(list, names.odd),
            names.is_field};
}

FileSet make_set(const FieldNames &names, bool fields)
{
    FileSet set;
    set.fields = fields;
    set.main = fields ? std::vector{names.even, names.odd} : std::vector{names.base};
    for (const std::string &path : set.main) {
        if (path != "/dev/stdin") {
            set.matte.push_back(companion_path(path, "mask"));
            set.depth.push_back(companion_path(path, "depth"));
        }
    }
    return set;
}

} // namespace

bool is_readable(const std::string &path)
{
    return access(path.c_str(), R_OK) == 0;
}

bool ends_in(const std::string &name, const std::string &end)
{
    return name.size() > end.size() &&
           strcasecmp(name.c_str() + name.size() - end.size(), end.c_str()) == 0;
}

std::string plain_name(const std::string &name)
{
    std::string plain = name.starts_with('/') ? "/" : "";
    const size_t slash = name.rfind('/');
    const size_t file = slash == std::string::npos ? 0 : slash + 1;
    std::string last;
    for (size_t at = 0; at < file;) {
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
    return plain + name.substr(file);
}

FieldNames field_names(const std::string &name)
{
    std::string base = name;
    const char *separator = ".";
    bool is_field = false;
    const char last = name.empty() ? '\0' : name.back();
    if (last == 'e' || last == 'o') {
        const size_t dot = dot_before_number(name, name.size() - 1);
        if (dot != std::string::npos) {
            is_field = true;
            const bool numbered = dot + 1 < name.size() - 1;
            separator = numbered ? "" : ".";
            base.resize(numbered ? name.size() - 1 : dot);
        }
    } else if (last >= '0' && last <= '9' &&
               dot_before_number(name, name.size()) != std::string::npos) {
        separator = "";
    }
    return {base, base + separator + "e", base + separator + "o", is_field};
}

std::string companion_path(const std::string &path, const char *label)
{
    const size_t last = path.rfind('/');
    if (last == std::string::npos) {
        return std::string("../") + label + "/" + path;
    }
    const size_t above = last == 0 ? std::string::npos : path.rfind('/', last - 1);
    const bool from_root = above != std::string::npos || last == 0;
    const std::string parent = above == std::string::npos ? "" : path.substr(0, above);
    return parent + (from_root ? "/" : "") + label + path.substr(last);
}

FileSet find_files(const std::string &name, bool search)
{
    const FieldNames names = field_names(name);
    const char *const lists[] = {nullptr, search ? getenv("KV_IMG_DIR") : nullptr};
    const bool as_pairs[] = {names.is_field, !names.is_field};
    for (const bool as_pair : as_pairs) {
        for (const char *list : lists) {
            const FieldNames found = resolve_all(list, names);
            if (is_readable(as_pair ? found.even : found.base)) {
                return make_set(found, as_pair);
            }
        }
    }
    return make_set(names, is_readable(names.odd));
}
