// `vorla export`: the copying of rows from the module to picture formats. What those files look
// like is left to formats.h, how they come to stand under their names to outputs.h.
#include "vorla/batch.h"
#include "vorla/commands.h"
#include "vorla/formats.h"
#include "vorla/outputs.h"
#include "vorla/plan.h"
#include "vorla/rows.h"

#include "format/depth.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace {

// --- Names ----------------------------------------------------------------------------------

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

// The format of the outputs. Throws a Failure, EXIT_USAGE, when nothing tells, or when OUT is no
// name for a file of it.
const PictureFormat &choose_format(const Options &options)
{
    const std::string &output = options.output;
    const bool into_directory = is_directory(output);
    const PictureFormat *format = !options.to.empty() ? format_named(options.to)
                                  : output == "-"     ? format_named("png")
                                                      : format_of_name(output);
    const auto refuse = [&](const auto &...why) { throw Failure(EXIT_USAGE, output, why...); };
    if (!into_directory && ends_in(output, ".pix")) {
        refuse("cannot export: the name ends in .pix, and what is made is PNG or OpenEXR");
    }
    if (!into_directory && !may_exist(output) && output != "-" &&
        (output.ends_with('/') || (format && file_part(output).find('.') == std::string::npos))) {
        refuse("no such directory");
    }
    if (!format) {
        refuse("cannot export", into_directory
                                    ? " to a directory: --to png or --to exr is missing"
                                    : ": the name ends in neither .png nor .exr; --to says which");
    }
    if (!format->start) {
        refuse("cannot write ", format->words, ": vorla was built without");
    }
    if (output == "-" && format->has_linear) {
        throw Failure(EXIT_USAGE, "standard output",
                      "cannot export: only PNG can be written there");
    }
    if ((options.linear || options.depth_samples == "float") && !format->has_linear) {
        refuse("cannot export: --linear and --depth float are for OpenEXR");
    }
    if (options.level >= 0 && format->has_linear) {
        refuse("cannot export: --level is for PNG");
    }
    return *format;
}

// --- Pictures -------------------------------------------------------------------------------

// Reads the whole picture into the writer.
void copy_rows(ExportRows *rows, const std::string &name, RowWriter *writer)
{
    Progress progress(name, rows->shape.height, "rows");
    for (int32_t row = 0; row < rows->shape.height; ++row) {
        writer->write_row(rows->read(row));
        progress.show(row + 1);
    }
    writer->finish();
}

DepthRange find_range(ExportRows *rows)
{
    DepthRange range;
    for (int32_t row = 0; row < rows->shape.height; ++row) {
        const auto *depths =
            static_cast<const int32_t *>(rows->read(row)[depth_index(rows->shape)]);
        for (int32_t x = 0; x < rows->shape.width; ++x) {
            if (depths[x] < PIX_DEPTH_LIMIT) {
                range.nearest = std::min(range.nearest, depths[x]);
                range.farthest = std::max(range.farthest, depths[x]);
            }
        }
    }
    return range;
}

// Returns what is to be said of the file once it stands under its name.
std::string write_depth_view(const Options &options, ExportRows *rows, Outputs *outputs)
{
    const std::string &name = options.depth_picture;
    const DepthRange range = find_range(rows);
    const bool empty = range.nearest > range.farthest;
    const std::string what = empty ? " of a depth in which nothing is seen"
                                   : text_of(" of the depth, scaled from ", range.nearest,
                                             " (white) to ", range.farthest, " (black)");
    const std::string comment = text_of("A view", what, ", not the depth itself");
    FILE *stream = outputs->add(name);
    copy_rows(rows, name,
              start_depth_view(stream, name, rows->shape, options, range, comment).get());
    return text_of("a", comment.substr(1));
}

void check_outputs(const Source &source, const Names &outputs)
{
    for (const Names &kind : source.files.paths) {
        for (const std::string &output : outputs) {
            const auto is_output = [&](const std::string &file) {
                return is_same_file(file, output);
            };
            if (std::any_of(kind.begin(), kind.end(), is_output)) {
                throw Failure(EXIT_USAGE, output,
                              "cannot write: it is a file of the picture itself");
            }
        }
    }
}

// A picture of which a companion or a row has been left out is exported, but not with exit code 0.
ExitCode export_open(Source *source, const PictureFormat &format, const std::string &output)
{
    const Options &options = source->session.options;
    const std::string &view = options.depth_picture;
    for (const Dropped &dropped : source->dropped) {
        complain(source->name, dropped.reason + "; it is left out");
    }
    if (!view.empty() && !source->shape.depth) {
        throw Failure(source->dropped.empty() ? EXIT_USAGE : source->code_of_dropped(),
                      source->name, "cannot make a view of the depth: the picture has none");
    }
    check_outputs(*source, {output, view});
    Outputs outputs(options.overwrite);
    ExportRows rows(source);
    FILE *stream = outputs.add(output);
    const std::string shown = output == "-" ? "standard output" : output;
    copy_rows(&rows, source->name, format.start(stream, shown, rows.shape, options).get());
    const std::string words = view.empty() ? "" : write_depth_view(options, &rows, &outputs);
    outputs.put_in_place();
    if (!view.empty()) {
        note(view, words);
    }
    if (rows.lost > 0) {
        complain(source->name,
                 text_of(rows.lost, " of ", source->shape.height,
                         " rows cannot be read and are black; the first: ", rows.first));
    }
    return worst(source->code_of_dropped(), rows.lost > 0 ? EXIT_DAMAGED : EXIT_FINE);
}

ExitCode export_one(const Session &session, const PictureFormat &format, const Job &job)
{
    const std::string &view = session.options.depth_picture;
    if (session.options.skips && may_exist(job.output) && (view.empty() || may_exist(view))) {
        return EXIT_FINE;
    }
    check_free(job.output, session.options.overwrite);
    if (!view.empty()) {
        check_free(view, session.options.overwrite);
    }
    Source source(session, job.input);
    return export_open(&source, format, job.output);
}

} // namespace

ExitCode run_export(const Session &session)
{
    const Options &options = session.options;
    const std::string &view = options.depth_picture;
    if (options.files.size() > 1 && !view.empty()) {
        throw Failure(EXIT_USAGE, view, "cannot export: --depth-picture is for one picture");
    }
    check_directory(options);
    const PictureFormat &format = choose_format(options);
    const std::vector<Job> jobs = plan_jobs(session, std::string(".") + format.name);
    if (!view.empty() && is_one_output(jobs[0].output, view)) {
        throw Failure(EXIT_USAGE, view, "cannot be both the picture and the view of its depth");
    }
    return run_batch(session, options.output, inputs_of(jobs),
                     [&](size_t at) { return export_one(session, format, jobs[at]); });
}
