// The walk, and what is left out of it.
#include "vorla/faults.h"
#include "vorla/walk.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>

namespace {

namespace fs = std::filesystem;

bool is_in_companion_directory(const std::string &file)
{
    const fs::path directory = fs::path(file).parent_path().filename();
    return directory == "mask" || directory == "depth";
}

bool has_companion(const std::string &file)
{
    return !is_in_companion_directory(file) &&
           (may_exist(companion_path(file, KIND_MATTE)) ||
            may_exist(companion_path(file, KIND_DEPTH)));
}

// Adds a file if it is PIX, or is called so or has a companion: one of those that is not is
// damaged.
void consider(const Session &session, const fs::path &path, Names *files)
{
    const std::string file = plain_name(path);
    FILE *stream = fopen(path.c_str(), "re");
    if (!stream) {
        fail_system(file, "cannot open");
    }
    const bool is_pix = session.module.is_file(path.c_str(), stream) == 1;
    (void)fclose(stream);
    if (is_pix || path.extension() == standin_text(&session.module, "imageExtension") ||
        has_companion(file)) {
        files->push_back(file);
    }
}

ExitCode walk(const Session &session, const fs::path &directory, Names *files)
{
    ExitCode code = EXIT_FINE;
    std::error_code error;
    fs::directory_iterator entry(directory, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        check_interrupt();
        std::error_code vanished;
        if (entry->is_directory(vanished) && !entry->is_symlink(vanished)) {
            code = worst(code, walk(session, entry->path(), files));
        } else if (entry->is_regular_file(vanished)) {
            code = worst(code, attempt([&] {
                             consider(session, entry->path(), files);
                             return EXIT_FINE;
                         }));
        }
    }
    if (error) {
        complain(directory.string(), "cannot read the directory: " + error.message());
        code = worst(code, EXIT_IO);
    }
    return code;
}

// The files that are verified with a picture: its companions, and its odd field.
std::set<std::string> parts_of_others(const Names &files)
{
    const std::set<std::string> all(files.begin(), files.end());
    std::set<std::string> parts;
    for (const std::string &file : files) {
        if (!is_in_companion_directory(file)) {
            parts.insert(companion_path(file, KIND_MATTE));
            parts.insert(companion_path(file, KIND_DEPTH));
        }
        const FieldNames names = field_names(file);
        if (names.is_field && file == names.odd && all.count(names.even) > 0) {
            parts.insert(file);
        }
    }
    return parts;
}

} // namespace

ExitCode find_pictures(const Session &session, const std::string &directory, Names *found)
{
    Names files;
    const ExitCode code = walk(session, directory, &files);
    const std::set<std::string> parts = parts_of_others(files);
    std::sort(files.begin(), files.end());
    std::copy_if(files.begin(), files.end(), std::back_inserter(*found),
                 [&](const std::string &file) { return parts.count(file) == 0; });
    return code;
}
