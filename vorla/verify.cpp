// `vorla verify`: decodes every row of every kind of file, and finds the pictures in directories.
#include "vorla/batch.h"
#include "vorla/commands.h"
#include "vorla/plan.h"
#include "vorla/source.h"

#include "format/packets.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
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

// Prints a defect on standard output, or, when the file could not be checked, on standard error.
void print_defect(const std::string &name, ExitCode code, const std::string &defect)
{
    if (code == EXIT_IO) {
        complain(name, defect);
    } else {
        print_line(name + ": " + defect);
    }
}

// Returns how many bytes follow the last pixel of a file that is known to hold all pixels. The file
// has packets of `channels` channels, or depth samples if `channels` is 0.
int64_t find_trailing(const std::string &path, int32_t channels, int32_t pixels)
{
    const bool depth = channels == 0;
    std::ifstream file(path, std::ios::binary);
    const auto header = static_cast<int64_t>(depth ? sizeof(PixDepthHeader) : sizeof(PixHeader));
    file.seekg(header + (depth ? int64_t{4} * pixels : 0));
    std::array<uint8_t, 1 << 16> block; // of whole packets
    PixSpan rest = {};
    PixRow all = {nullptr, channels, depth ? 0 : pixels, 0};
    while (file && all.done < all.width) {
        check_interrupt();
        file.read(reinterpret_cast<char *>(block.data()), block.size());
        rest = {block.data(), block.data() + file.gcount()};
        (void)pix_decode(&rest, &all, pix_can_shuffle);
    }
    file.clear();
    const auto behind = rest.end - rest.at - file.tellg();
    if (!file.seekg(0, std::ios::end) || all.done < all.width) {
        fail_system(path, "cannot read");
    }
    return behind + file.tellg();
}

// Says which files of a picture whose rows are all good go on behind them.
ExitCode find_all_trailing(const Source &source)
{
    const PictureShape &shape = source.shape;
    const int32_t channels[] = {shape.colour ? PIX_COLOUR_CHANNELS : PIX_MATTE_CHANNELS,
                                PIX_MATTE_CHANNELS, 0};
    ExitCode code = EXIT_FINE;
    for (const FileKind kind : KINDS) {
        const Names &paths = source.files.paths[kind];
        const auto fields = static_cast<int32_t>(paths.size());
        for (int32_t field = 0; source.is_open(kind) && field < fields; ++field) {
            const std::string &path = paths[static_cast<size_t>(field)];
            const int32_t rows = (shape.height + fields - 1 - field) / fields;
            const int64_t bytes = find_trailing(path, channels[kind], rows * shape.width);
            if (bytes > 0) {
                const std::string of = fields == 1 && kind == KIND_MAIN ? "" : " of " + path;
                print_line(text_of(source.name, ": ", bytes, " bytes follow the last row", of));
                code = EXIT_DAMAGED;
            }
        }
    }
    return code;
}

ExitCode verify(const Session &session, const std::string &file)
{
    try {
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
    } catch (const Failure &failure) {
        check_interrupt();
        print_defect(failure.file, failure.code, failure.what());
        return failure.code;
    }
}

// --- Directories ----------------------------------------------------------------------------

// The paths of a file's companions; none for a file that would be its own companion.
std::set<std::string> companions_of(const std::string &file)
{
    std::set<std::string> names = {companion_path(file, KIND_MATTE),
                                   companion_path(file, KIND_DEPTH)};
    return names.count(file) > 0 ? std::set<std::string>() : names;
}

// Whether a file is to be verified: it is PIX, or it should be PIX, because it has the extension or
// a companion. Temporary files that a killed vorla has left behind are not verified.
bool is_picture(const Session &session, const std::string &file)
{
    const fs::path last = file_part(file);
    const bool left_behind = last.string().starts_with(".vorla-") && last.extension() == ".tmp";
    return !left_behind && (is_pix(session, file) ||
                            last.extension() == standin_text(&session.module, "imageExtension") ||
                            std::ranges::any_of(companions_of(file), may_exist));
}

// Adds the pictures in a directory and below, companions and fields included.
ExitCode walk(const Session &session, const std::string &directory, std::set<std::string> *files)
{
    ExitCode code = EXIT_FINE;
    std::error_code error;
    fs::directory_iterator entry(directory, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        check_interrupt();
        code = worst(code, attempt([&] {
                         std::error_code vanished;
                         const std::string file = plain_name(entry->path());
                         if (entry->is_directory(vanished)) {
                             if (!entry->is_symlink(vanished)) {
                                 return walk(session, entry->path(), files);
                             }
                             note(file, "is a link to a directory, which is not followed");
                         }
                         if (entry->is_regular_file(vanished) && is_picture(session, file)) {
                             files->insert(file);
                         }
                         return EXIT_FINE;
                     }));
    }
    if (error) {
        throw Failure(EXIT_IO, directory, "cannot read the directory: ", error.message());
    }
    return code;
}

// Finds the pictures that a name stands for: itself, or those in the directory and below, sorted,
// without the companions of others.
ExitCode find_pictures(const Session &session, const std::string &name, Names *found)
{
    if (!is_directory(name)) {
        found->push_back(name);
        return EXIT_FINE;
    }
    if (!session.options.recursive) {
        throw Failure(EXIT_IO, name, "is a directory (-r verifies the pictures in it)");
    }
    std::set<std::string> files;
    std::set<std::string> parts;
    const ExitCode code = attempt([&] { return walk(session, name, &files); });
    for (const std::string &file : files) {
        parts.merge(companions_of(file));
    }
    std::ranges::set_difference(files, parts, std::back_inserter(*found));
    if (found->empty()) {
        complain(name, "no PIX files here");
    }
    return code;
}

// Finds the pictures that are named, both fields of one as one.
ExitCode gather(const Session &session, Names *pictures)
{
    ExitCode code = EXIT_FINE;
    std::set<std::string> fields;
    for (const std::string &name : session.options.files) {
        Names found;
        code = worst(code, attempt([&] { return find_pictures(session, name, &found); }));
        std::ranges::copy_if(found, std::back_inserter(*pictures), [&](const std::string &file) {
            return !field_names(file).is_field || fields.insert(identity_of(session, file)).second;
        });
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
