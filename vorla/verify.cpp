// `vorla verify`: decodes every row of every kind of file, and finds the pictures in directories.
#include "vorla/batch.h"
#include "vorla/commands.h"
#include "vorla/plan.h"
#include "vorla/source.h"

#include "format/packets.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

namespace {

namespace fs = std::filesystem;

// --- Pictures -------------------------------------------------------------------------------

std::string kinds_of(const PictureShape &shape)
{
    std::string kinds = shape.colour ? ", colour" : "";
    kinds += shape.matte ? ", matte" : "";
    kinds += shape.depth ? ", depth" : "";
    return kinds.substr(2);
}

// Findings go to standard output, what kept them from being found to standard error.
void print_defect(const std::string &name, ExitCode code, const std::string &defect)
{
    if (code == EXIT_IO) {
        complain(name, defect);
    } else {
        print_line(name + ": " + defect);
    }
}

// The bytes behind the last row of a file that is known to hold `rows` rows.
size_t bytes_behind(const uint8_t *bytes, size_t size, FileKind kind, const PictureShape &shape,
                    size_t rows)
{
    if (kind == KIND_DEPTH) {
        return size - sizeof(PixDepthHeader) - rows * static_cast<size_t>(shape.width) * 4;
    }
    const bool colour = kind == KIND_MAIN && shape.colour;
    PixSpan rest = {bytes + sizeof(PixHeader), bytes + size};
    for (size_t row = 0; row < rows; ++row) {
        PixRow passed = {nullptr, colour ? PIX_COLOUR_CHANNELS : PIX_MATTE_CHANNELS, shape.width,
                         0};
        (void)pix_decode(&rest, &passed, pix_can_shuffle);
    }
    return static_cast<size_t>(rest.end - rest.at);
}

size_t find_trailing(const std::string &path, FileKind kind, const PictureShape &shape, size_t rows)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat entry;
    if (file < 0 || fstat(file, &entry) != 0) {
        fail_system(path, "cannot open");
    }
    const auto size = static_cast<size_t>(entry.st_size);
    void *bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
    close(file);
    if (bytes == MAP_FAILED) {
        fail_system(path, "cannot read");
    }
    const size_t behind =
        bytes_behind(static_cast<const uint8_t *>(bytes), size, kind, shape, rows);
    (void)munmap(bytes, size);
    return behind;
}

// Says which files of a picture whose rows are all good go on behind them.
ExitCode find_all_trailing(const Source &source)
{
    ExitCode code = EXIT_FINE;
    const bool is_open[] = {true, source.shape.colour && source.shape.matte, source.shape.depth};
    for (const FileKind kind : {KIND_MAIN, KIND_MATTE, KIND_DEPTH}) {
        const Names &paths = source.files.paths[kind];
        for (size_t field = 0; is_open[kind] && field < paths.size(); ++field) {
            const size_t rows =
                (static_cast<size_t>(source.shape.height) + paths.size() - 1 - field) /
                paths.size();
            const size_t bytes = find_trailing(paths[field], kind, source.shape, rows);
            if (bytes > 0) {
                print_line(text_of(source.name, ": ", bytes, " bytes follow the last row",
                                   paths.size() == 1 && kind == KIND_MAIN ? "" : " of ",
                                   paths.size() == 1 && kind == KIND_MAIN ? "" : paths[field]));
                code = EXIT_DAMAGED;
            }
        }
    }
    return code;
}

ExitCode verify_open(const Session &session, const std::string &file)
{
    Source source(session, file);
    for (const Dropped &dropped : source.dropped) {
        print_defect(source.name, dropped.code, dropped.reason);
    }
    if (!source.dropped.empty()) {
        return source.code_of_dropped();
    }
    const int32_t height = source.shape.height;
    Progress progress(source.name, height, "rows");
    for (int32_t row = 0; row < height; ++row) {
        source.read_row(row);
        progress.show(row + 1);
    }
    const ExitCode code = find_all_trailing(source);
    if (code == EXIT_FINE && !session.options.quiet) {
        print_line(text_of(source.name, ": ok (", height, height == 1 ? " row; " : " rows; ",
                           kinds_of(source.shape), ")"));
    }
    return code;
}

ExitCode verify(const Session &session, const std::string &file)
{
    try {
        return verify_open(session, file);
    } catch (const Failure &failure) {
        check_interrupt();
        print_defect(failure.file, failure.code, failure.what());
        return failure.code;
    }
}

// --- Directories ----------------------------------------------------------------------------

bool is_in_companion_directory(const std::string &file)
{
    const fs::path directory = fs::path(file).parent_path().filename();
    return directory == "mask" || directory == "depth";
}

bool has_companion(const std::string &file)
{
    return !is_in_companion_directory(file) && (may_exist(companion_path(file, KIND_MATTE)) ||
                                                may_exist(companion_path(file, KIND_DEPTH)));
}

// Adds a file if it is PIX, or is called so or has a companion: one of those that is not is
// damaged.
void consider(const Session &session, const fs::path &path, Names *files)
{
    const std::string file = plain_name(path);
    const std::string last = file_part(file);
    if (last.starts_with(".vorla-") && ends_in(last, ".tmp")) {
        return; // left behind by a program that was killed
    }
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

// Adds the pictures in `directory` and below to `found`, sorted: regular files that the module
// takes for PIX, that end in its extension or that have a companion, without the companions of
// others and without odd fields whose even field is there.
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

// Replaces directories by the pictures in them, and both fields of a picture by one.
ExitCode gather(const Session &session, Names *pictures)
{
    ExitCode code = EXIT_FINE;
    std::set<std::string> fields;
    for (const std::string &file : session.options.files) {
        if (!is_directory(file)) {
            const bool is_field = field_names(file).is_field;
            if (!is_field || fields.insert(identity_of(session, file)).second) {
                pictures->push_back(file);
            }
        } else if (session.options.recursive) {
            const size_t before = pictures->size();
            code = worst(code, find_pictures(session, file, pictures));
            if (pictures->size() == before) {
                complain(file, "no PIX files here");
            }
        } else {
            complain(file, "is a directory (-r verifies the pictures in it)");
            code = EXIT_IO;
        }
    }
    return code;
}

} // namespace

ExitCode run_verify(const Session &session)
{
    Names pictures;
    const ExitCode code = gather(session, &pictures);
    return worst(code, run_batch(session, "", pictures,
                                 [&](size_t at) { return verify(session, pictures[at]); }));
}
