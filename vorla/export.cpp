// `vorla export`: the copying of rows from the module to picture formats. What those files look
// like is left to formats.h, how they come to stand under their names to outputs.h.
#include "vorla/commands.h"
#include "vorla/outputs.h"
#include "vorla/plan.h"
#include "vorla/progress.h"
#include "vorla/source.h"

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

// The format of the outputs; null when nothing tells.
const PictureFormat *chosen_format(const ExportOptions &options)
{
    return !options.to.empty()     ? format_named(options.to)
           : options.output == "-" ? format_named("png")
                                   : format_of_name(options.output);
}

std::vector<Job> plan(const ExportOptions &options, const PictureFormat *format)
{
    const bool several = options.inputs.size() > 1;
    if (several && !options.depth_picture.empty()) {
        throw Failure(EXIT_USAGE, options.depth_picture,
                      "cannot export: --depth-picture is for one picture");
    }
    const bool into_directory = is_directory(options.output);
    if (several && !into_directory) {
        throw Failure(EXIT_USAGE, options.output,
                      "cannot export several pictures into it: no such directory");
    }
    if (!format) {
        throw Failure(EXIT_USAGE, options.output,
                      into_directory
                          ? "cannot export to a directory: --to png or --to exr is missing"
                          : "cannot export: the name ends in neither .png nor .exr; --to says "
                            "which");
    }
    if (options.output == "-" && options.to == "exr") {
        throw Failure(EXIT_USAGE, "standard output",
                      "cannot export: only PNG can be written there");
    }
    if (!into_directory) {
        return {{options.inputs[0], options.output}};
    }
    return plan_directory("export", options.inputs, options.output, [&](const std::string &base) {
        return without(base, ".pix") + "." + format->name;
    });
}

// --- Pictures -------------------------------------------------------------------------------

// Reads the whole picture into the writer.
void copy_rows(Source *source, RowWriter *writer)
{
    Progress progress(source->name, source->shape.height, "rows");
    for (int32_t row = 0; row < source->shape.height; ++row) {
        source->read_row(row);
        writer->write_row(source->rows);
        progress.show(row + 1);
    }
    writer->finish();
}

DepthRange find_range(Source *source)
{
    DepthRange range;
    for (int32_t row = 0; row < source->shape.height; ++row) {
        source->read_row(row);
        const auto *depths = static_cast<const int32_t *>(source->rows[depth_index(source->shape)]);
        for (int32_t x = 0; x < source->shape.width; ++x) {
            if (depths[x] < PIX_DEPTH_LIMIT) {
                range.nearest = std::min(range.nearest, depths[x]);
                range.farthest = std::max(range.farthest, depths[x]);
            }
        }
    }
    return range;
}

// Returns what is to be said of the file once it stands under its name.
std::string write_depth_view(const std::string &output, Source *source, Outputs *outputs)
{
    const DepthRange range = find_range(source);
    const std::string from = std::to_string(range.nearest);
    const std::string to = std::to_string(range.farthest);
    const bool empty = range.nearest > range.farthest;
    const std::string end = ", not the depth itself";
    const std::string comment =
        empty ? "A view of a depth in which nothing is seen" + end
              : "A view of the depth, scaled from " + from + " (white) to " + to + " (black)" + end;
    FILE *stream = outputs->add(output);
    copy_rows(source, start_depth_view(stream, output, source->shape, range, comment).get());
    return empty ? "a view of a depth in which nothing is seen" + end
                 : "a view of the depth from " + from + " to " + to + end;
}

void check_outputs(const Source &source, const Names &outputs)
{
    for (const Names &kind : source.files.paths) {
        for (const std::string &output : outputs) {
            if (std::any_of(kind.begin(), kind.end(),
                            [&](const std::string &file) { return is_same_file(file, output); })) {
                throw Failure(EXIT_USAGE, output,
                              "cannot write: it is a file of the picture itself");
            }
        }
    }
}

// A picture of which a companion has been left out is exported, but not with exit code 0.
ExitCode export_one(const Session &session, const ExportOptions &options,
                    const PictureFormat &format, const Job &job)
{
    const std::string &view = options.depth_picture;
    const Names names = view.empty() ? Names{job.output} : Names{job.output, view};
    for (const std::string &name : names) {
        check_free(name, options.overwrite);
    }
    Source source(session, job.input);
    for (const Dropped &dropped : source.dropped) {
        complain(source.name, dropped.reason + "; it is left out");
    }
    if (!view.empty() && !source.shape.depth) {
        throw Failure(source.dropped.empty() ? EXIT_USAGE : source.code_of_dropped(), source.name,
                      "cannot make a view of the depth: the picture has none");
    }
    check_outputs(source, names);
    Outputs outputs(options.overwrite);
    FILE *stream = outputs.add(job.output);
    const std::string shown = job.output == "-" ? "standard output" : job.output;
    copy_rows(&source, format.start(stream, shown, source.shape, options).get());
    const std::string words = view.empty() ? "" : write_depth_view(view, &source, &outputs);
    outputs.put_in_place();
    if (!view.empty()) {
        note(view, words);
    }
    return source.code_of_dropped();
}

} // namespace

ExitCode run_export(const Session &session, const ExportOptions &options)
{
    const PictureFormat *format = chosen_format(options);
    const std::vector<Job> jobs = plan(options, format);
    const std::string &view = options.depth_picture;
    if (!view.empty() && is_one_output(jobs[0].output, view)) {
        throw Failure(EXIT_USAGE, view, "cannot be both the picture and the view of its depth");
    }
    if ((options.linear || options.depth_float) && !format->has_linear) {
        throw Failure(EXIT_USAGE, jobs[0].output,
                      "cannot export: --linear and --depth float are for OpenEXR");
    }
    if (!format->start) {
        throw Failure(EXIT_USAGE, jobs[0].output,
                      std::string("cannot write ") + format->words + ": vorla was built without");
    }
    Progress progress(options.output, static_cast<int64_t>(jobs.size()), "files");
    int64_t done = 0;
    ExitCode code = EXIT_FINE;
    for (const Job &job : jobs) {
        code = worst(code, attempt([&] { return export_one(session, options, *format, job); }));
        progress.show(++done);
    }
    return code;
}
