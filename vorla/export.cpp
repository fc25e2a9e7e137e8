// `vorla export`: which picture goes to which file, and the copying of rows from the module to PNG
// and OpenEXR. What those files look like is left to png_file and exr_file, and how they come to
// stand under their names to pending.
#include "vorla/commands.h"
#include "vorla/exr_file.h"
#include "vorla/pending.h"
#include "vorla/png_file.h"
#include "vorla/progress.h"

#include "format/depth.h"
#include "host/messages.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <system_error>

namespace {

// One picture to be exported. `rows_shown`: the progress line counts its rows.
struct Job {
    std::string input;
    std::string output;
    bool to_exr = false;
    bool rows_shown = false;
};

// --- Names ----------------------------------------------------------------------------------

// The name in a directory for what is made of the picture `input`.
std::string exported_name(const std::string &input, const std::string &extension)
{
    const std::string file = input.substr(input.rfind('/') + 1); // npos + 1 is 0
    std::string stem = field_names(file).base;
    if (ends_in(stem, ".pix")) {
        stem.resize(stem.size() - strlen(".pix"));
    }
    return stem + "." + extension;
}

bool is_directory(const std::string &name)
{
    struct stat entry;
    return stat(name.c_str(), &entry) == 0 && S_ISDIR(entry.st_mode);
}

ExitCode misuse(const std::string &file, const std::string &what)
{
    complain(file, what);
    return EXIT_USAGE;
}

// Jobs into a directory. Both fields of a picture make one; two pictures that would make the same
// file are wrong usage.
ExitCode plan_directory(const ExportOptions &options, std::vector<Job> *jobs)
{
    if (!is_directory(options.output)) {
        struct stat entry;
        const int reason = stat(options.output.c_str(), &entry) == 0 ? ENOTDIR : errno;
        complain(options.output,
                 std::string("cannot export several pictures into it: ") + strerror(reason));
        return EXIT_IO;
    }
    if (options.to.empty()) {
        return misuse(options.output,
                      "cannot export to a directory: --to png or --to exr is missing");
    }
    std::map<std::string, std::string> taken;
    const std::string directory = options.output + (options.output.ends_with('/') ? "" : "/");
    for (const std::string &input : options.inputs) {
        if (input == "-") {
            return misuse("standard input", "cannot export into a directory: it has no name");
        }
        const std::string output = directory + exported_name(input, options.to);
        const auto [other, is_new] = taken.emplace(output, input);
        if (!is_new && field_names(input).base == field_names(other->second).base) {
            continue;
        }
        if (!is_new) {
            return misuse(input, "cannot export: " + output + " is made of " + other->second);
        }
        jobs->push_back({input, output, options.to == "exr", options.inputs.size() == 1});
    }
    return EXIT_FINE;
}

// Whether two files to be made would be one.
bool is_one_output(std::string one, std::string other)
{
    for (std::string *name : {&one, &other}) {
        std::error_code error;
        const auto path = std::filesystem::weakly_canonical(*name, error);
        const bool standard = *name == "-" || *name == "/dev/stdout";
        *name = standard ? "-" : error ? *name : path.string();
    }
    return one == other;
}

ExitCode plan(const ExportOptions &options, std::vector<Job> *jobs)
{
    const bool several = options.inputs.size() > 1;
    if (several && !options.depth_picture.empty()) {
        return misuse(options.depth_picture, "cannot export: --depth-picture is for one picture");
    }
    if (several || is_directory(options.output)) {
        return plan_directory(options, jobs);
    }
    const bool standard = options.output == "-";
    const bool to_exr = options.to.empty() ? ends_in(options.output, ".exr") : options.to == "exr";
    if (standard && to_exr) {
        return misuse("standard output", "cannot export: only PNG can be written there");
    }
    if (options.to.empty() && !standard && !to_exr && !ends_in(options.output, ".png")) {
        return misuse(options.output,
                      "cannot export: the name ends in neither .png nor .exr; --to says which");
    }
    jobs->push_back({options.inputs[0], options.output, to_exr, true});
    return EXIT_FINE;
}

// --- Pictures -------------------------------------------------------------------------------

PictureShape shape_of(const Source &source)
{
    PictureShape shape;
    shape.width = source.width;
    shape.height = source.height;
    shape.colour = source.colour;
    shape.matte = source.matte;
    shape.depth = source.depth;
    const ImageInfo &info = *source.handle->info;
    if (strcmp(info.format_label, PIX_LABEL_FORMAT.text) != 0) {
        // Six digits, which is what the aspects have, so that square pixels are 1.
        const double aspect = double{info.aspect} * source.height / source.width;
        shape.pixel_aspect = static_cast<float>(std::round(aspect * 1e6) / 1e6);
    }
    return shape;
}

// Reads the whole picture into the writer.
ExitCode copy_rows(Source *source, RowWriter *writer, bool rows_shown)
{
    ExitCode code = EXIT_FINE;
    if (rows_shown) {
        start_progress(source->name, source->height, "rows");
    }
    for (int32_t row = 0; row < source->height && code == EXIT_FINE; ++row) {
        code = read_row(source, row);
        if (code == EXIT_FINE) {
            code = writer->write_row(source->rows);
        }
        if (rows_shown) {
            show_progress(row + 1);
        }
    }
    if (rows_shown) {
        end_progress();
    }
    return code == EXIT_FINE ? writer->finish() : code;
}

ExitCode write_picture(const ExportOptions &options, const Job &job, Source *source,
                       PendingSet *set)
{
    PendingFile *file = add_pending(set, job.output);
    if (!file) {
        return EXIT_IO;
    }
    const std::string name = job.output == "-" ? "standard output" : job.output;
    const PictureShape shape = shape_of(*source);
    const ExrOptions exr = {options.linear, options.depth_float, false};
    const std::unique_ptr<RowWriter> writer = job.to_exr ? start_exr(file->stream, name, shape, exr)
                                                         : start_png(file->stream, name, shape);
    return writer ? copy_rows(source, writer.get(), job.rows_shown) : EXIT_IO;
}

ExitCode find_range(Source *source, DepthRange *range)
{
    const int index = depth_index(shape_of(*source));
    for (int32_t row = 0; row < source->height; ++row) {
        if (const ExitCode code = read_row(source, row)) {
            return code;
        }
        const auto *depths = static_cast<const int32_t *>(source->rows[index]);
        for (int32_t x = 0; x < source->width; ++x) {
            if (depths[x] < PIX_DEPTH_LIMIT) {
                range->nearest = std::min(range->nearest, depths[x]);
                range->farthest = std::max(range->farthest, depths[x]);
            }
        }
    }
    return EXIT_FINE;
}

// `words` are to be said of the file once it stands under its name.
ExitCode write_depth_view(const std::string &output, Source *source, PendingSet *set,
                          std::string *words)
{
    DepthRange range;
    if (const ExitCode code = find_range(source, &range)) {
        return code;
    }
    const std::string from = std::to_string(range.nearest);
    const std::string to = std::to_string(range.farthest);
    const bool empty = range.nearest > range.farthest;
    const std::string comment =
        empty ? "A view of a depth in which nothing is seen, not the depth itself"
              : "A view of the depth, scaled from " + from + " (white) to " + to +
                    " (black), not the depth itself";
    PendingFile *file = add_pending(set, output);
    if (!file) {
        return EXIT_IO;
    }
    const std::unique_ptr<RowWriter> writer =
        start_depth_view(file->stream, output, shape_of(*source), range, comment);
    if (!writer) {
        return EXIT_IO;
    }
    *words = empty ? "a view of a depth in which nothing is seen, not the depth itself"
                   : "a view of the depth from " + from + " to " + to + ", not the depth itself";
    return copy_rows(source, writer.get(), true);
}

bool is_part_of(const FileSet &files, const std::string &output)
{
    for (const std::vector<std::string> *kind : {&files.main, &files.matte, &files.depth}) {
        if (std::any_of(kind->begin(), kind->end(),
                        [&](const std::string &file) { return is_same_file(file, output); })) {
            return true;
        }
    }
    return false;
}

ExitCode export_open(const ExportOptions &options, const Job &job, Source *source)
{
    const bool view_wanted = !options.depth_picture.empty();
    if (view_wanted && !source->depth) {
        complain(source->name, "cannot make a view of the depth: the picture has none");
        const ExitCode code = code_of_dropped(*source);
        return code == EXIT_FINE ? EXIT_USAGE : code;
    }
    for (const std::string &output : {job.output, options.depth_picture}) {
        if (is_part_of(source->files, output)) {
            return misuse(output, "cannot write: it is a file of the picture itself");
        }
    }
    PendingSet set;
    set.overwrite = options.overwrite;
    if (const ExitCode code = write_picture(options, job, source, &set)) {
        return code;
    }
    std::string words;
    if (view_wanted) {
        if (const ExitCode code = write_depth_view(options.depth_picture, source, &set, &words)) {
            return code;
        }
    }
    const ExitCode code = put_in_place(&set, {});
    if (code == EXIT_FINE && view_wanted) {
        complain(options.depth_picture, words);
    }
    return code;
}

// A picture of which a companion has been left out is exported, but not with exit code 0.
ExitCode export_one(const Session &session, const ExportOptions &options, const Job &job)
{
    for (const std::string &output : {job.output, options.depth_picture}) {
        const ExitCode code = output.empty() ? EXIT_FINE : check_free(output, options.overwrite);
        if (code != EXIT_FINE) {
            return code;
        }
    }
    Source source;
    ExitCode code = open_source(session, job.input, &source);
    if (code == EXIT_FINE) {
        code = export_open(options, job, &source);
        code = worst(code, code_of_dropped(source));
    }
    return worst(code, close_source(&source));
}

} // namespace

ExitCode run_export(const Session &session, const ExportOptions &options)
{
    std::vector<Job> jobs;
    ExitCode code = plan(options, &jobs);
    if (code != EXIT_FINE) {
        return code;
    }
    if (!options.depth_picture.empty() && is_one_output(jobs[0].output, options.depth_picture)) {
        return misuse(options.depth_picture,
                      "cannot be both the picture and the view of its depth");
    }
    if ((options.linear || options.depth_float) && !jobs[0].to_exr) {
        return misuse(jobs[0].output, "cannot export: --linear and --depth float are for OpenEXR");
    }
    const bool several = jobs.size() > 1;
    if (several) {
        start_progress(options.output, static_cast<int64_t>(jobs.size()), "files");
    }
    int64_t done = 0;
    for (const Job &job : jobs) {
        code = worst(code, export_one(session, options, job));
        if (several) {
            show_progress(++done);
        }
    }
    if (several) {
        end_progress();
    }
    return code;
}
