// `vorla export`: the copying of rows from the module to picture formats. What those files look
// like is left to formats.h, how they come to stand under their names to files.h.
#include "vorla/commands.h"
#include "vorla/files.h"
#include "vorla/formats.h"
#include "vorla/plan.h"
#include "vorla/rows.h"

#include "format/depth.h"

#include <algorithm>

namespace {

// Returns the format of the outputs. Throws a Failure, EXIT_USAGE, when neither the options nor the
// name give a format, or when the format does not go with the options.
const PictureFormat &choose_format(const Options &options)
{
    const bool standard = options.output == "-";
    const std::string name = standard ? "standard output" : options.output;
    const std::string to = standard && options.to.empty() ? "png" : options.to;
    const PictureFormat *format = to.empty() ? format_of_name(name) : format_named(to);
    refuse_if(!format, name, "cannot export",
              is_directory(name) ? " to a directory: --to png or --to exr is missing"
                                 : ": the name ends in neither .png nor .exr; --to says which");
    refuse_if(!format->start, name, "cannot write ", format->words,
              ": this vorla was built without support for it");
    refuse_if(standard && format->has_linear, name, "cannot export: only PNG can be written there");
    refuse_if((options.linear || options.depth_samples == "float") && !format->has_linear, name,
              "cannot export: --linear and --depth float are for OpenEXR");
    refuse_if(options.level >= 0 && format->has_linear, name, "cannot export: --level is for PNG");
    return *format;
}

// Reads the whole picture into the writer, and returns the range of its depths.
DepthRange copy_rows(ExportRows *rows, const std::string &name, RowWriter *writer)
{
    DepthRange range;
    const PictureShape &shape = rows->shape;
    Progress progress(name, shape.height, "rows");
    for (int32_t row = 0; row < shape.height; ++row) {
        void *const *samples = rows->read(row);
        writer->write_row(samples);
        progress.show(row + 1);
        for (int32_t x = 0; shape.depth && x < shape.width; ++x) {
            const int32_t depth = static_cast<const int32_t *>(samples[depth_index(shape)])[x];
            const bool is_seen = depth < PIX_DEPTH_LIMIT;
            range.nearest = is_seen ? std::min(range.nearest, depth) : range.nearest;
            range.farthest = is_seen ? std::max(range.farthest, depth) : range.farthest;
        }
    }
    writer->finish();
    return range;
}

// Returns what is to be said of the file once it stands under its name.
std::string write_depth_view(const Options &options, const DepthRange &range, ExportRows *rows,
                             Outputs *outputs)
{
    const std::string &name = options.depth_picture;
    const std::string scale = text_of("the depth, scaled from ", range.nearest, " (white) to ",
                                      range.farthest, " (black)");
    const std::string words = text_of(
        " view of ", range.nearest > range.farthest ? "a depth in which nothing is seen" : scale,
        ", not the depth itself");
    const auto writer = start_depth_view(outputs->add(name).stream.get(), name, rows->shape,
                                         options, range, "A" + words);
    (void)copy_rows(rows, name, writer.get());
    return "a" + words;
}

// A picture of which a companion or a row has been left out is exported, but not with exit code 0.
ExitCode export_one(const Session &session, const std::string &input, const std::string &output)
{
    const Options &options = session.options;
    const PictureFormat &format = choose_format(options);
    const std::string &view = options.depth_picture;
    Source source(session, input);
    for (const std::string &made : {output, view}) {
        for (const Names &files : source.files.paths) {
            const auto is_made = [&](const std::string &file) { return is_same_file(file, made); };
            refuse_if(std::any_of(files.begin(), files.end(), is_made), made,
                      "cannot write: it is a file of the picture itself");
        }
        check_free(made, options.overwrite);
    }
    for (const Dropped &dropped : source.dropped) {
        complain(source.name, dropped.reason + "; it is left out");
    }
    if (!view.empty() && !source.shape.depth) {
        throw Failure(source.dropped.empty() ? EXIT_USAGE : source.code_of_dropped(), source.name,
                      "cannot make a view of the depth: the picture has none");
    }
    Outputs outputs(options.overwrite);
    ExportRows rows(&source);
    FILE *stream = outputs.add(output).stream.get();
    const std::string shown = is_standard_output(output) ? "standard output" : output;
    const DepthRange range =
        copy_rows(&rows, source.name, format.start(stream, shown, rows.shape, options).get());
    const std::string words = view.empty() ? "" : write_depth_view(options, range, &rows, &outputs);
    outputs.put_in_place();
    if (!words.empty()) {
        note(view, words);
    }
    if (rows.lost > 0) {
        complain(source.name,
                 text_of(rows.lost, " of ", source.shape.height,
                         " rows cannot be read and are black, and rows after them may be in the "
                         "wrong place; the first: ",
                         rows.first));
    }
    return worst(source.code_of_dropped(), rows.lost > 0 ? EXIT_DAMAGED : EXIT_FINE);
}

} // namespace

ExitCode run_export(const Session &session)
{
    const Options &options = session.options;
    refuse_if(options.files.size() > 1 && !options.depth_picture.empty(), options.depth_picture,
              "cannot export: --depth-picture is for one picture");
    check_output(options);
    return run_work(session, choose_format(options).name, export_one);
}
