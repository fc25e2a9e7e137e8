// `vorla import`: a picture of another format is read row by row and written through the module,
// under temporary names, which files.h replaces. Companions stand where names.h says. A picture
// without colour has none, whatever stands there.
#include "vorla/commands.h"
#include "vorla/files.h"
#include "vorla/formats.h"
#include "vorla/names.h"
#include "vorla/plan.h"
#include "vorla/source.h"

#include <unistd.h>

#include <filesystem>

namespace {

// --- The input ------------------------------------------------------------------------------

// By what it begins with.
std::unique_ptr<RowReader> open_picture(FILE *file, const std::string &name, const Session &session)
{
    const Options &options = session.options;
    errno = 0;
    const PictureFormat *format = format_of_stream(file);
    check_call(ferror(file) == 0, name, "cannot read");
    if (!format) {
        const bool is_pix = session.module.is_file(name.c_str(), file) == 1;
        throw Failure(EXIT_DAMAGED, name, "cannot import: it ",
                      is_pix ? "is PIX already; vorla export makes PNG and OpenEXR of it"
                             : "begins like neither PNG nor OpenEXR");
    }
    refuse_if((options.linear || options.depth_scale != 1) && !format->has_linear, name,
              "cannot import: --linear and --depth-scale are for OpenEXR");
    refuse_if(!format->open, name, "cannot read ", format->words,
              ": this vorla was built without support for it");
    return format->open(file, name, options);
}

// --- The files of the set -------------------------------------------------------------------

// The paths by FileKind. A picture without colour has no companions, whatever stands there.
Names files_of_set(const std::string &output, const PictureShape &shape)
{
    return shape.colour ? Names{output, companion_path(output, KIND_MATTE),
                                companion_path(output, KIND_DEPTH)}
                        : Names{output};
}

// Throws a Failure unless the set can be written: no file of the set is `input` or its own
// companion, the name is not that of a field or a device, and, without `overwrite`, no file of the
// set and no field file of the picture exists.
void check_set(const Options &options, const std::string &input, const Names &set)
{
    const std::string &output = set[KIND_MAIN];
    const FieldNames fields = field_names(output);
    refuse_if(is_written_directly(output), output,
              "cannot import: a picture is a set of files, which need names");
    refuse_if(fields.is_field, output,
              "cannot import: it is a field's name, and fields are not written");
    for (size_t kind = KIND_MAIN; kind < set.size(); ++kind) {
        const std::string directory = directory_of(set[kind]);
        refuse_if(kind != KIND_MAIN && is_same_file(directory, directory_of(output)), output,
                  "cannot import: a picture in the directory of the ", file_part(directory),
                  " files would be its own companion");
        refuse_if(is_same_file(input, set[kind]), set[kind],
                  "cannot write: it is the picture to import");
        check_free(set[kind], options.overwrite);
    }
    for (const std::string &field : {fields.even, fields.odd}) {
        if (!options.overwrite && access(field.c_str(), F_OK) == 0) {
            throw Failure(EXIT_IO, output, "cannot write: there is the field ", field,
                          ", which the picture would hide; -f writes it anyway");
        }
    }
}

// Adds the files of the set, and returns the temporary name of the main one. Companions that the
// new picture does not have would be taken for its own: they are removed.
std::string add_set(Outputs *outputs, const Names &set, const PictureShape &shape)
{
    std::string main = outputs->add(set[KIND_MAIN]).temporary;
    const bool is_part[] = {true, shape.matte, shape.depth};
    for (size_t kind = KIND_MATTE; kind < set.size() && kind < std::size(is_part); ++kind) {
        if (is_part[kind]) {
            outputs->add_companion(set[kind], file_part(main));
        } else {
            outputs->add_stale(set[kind]);
        }
    }
    return main;
}

// --- Writing through the module -------------------------------------------------------------

// What of the picture is to be written: the channel choice is about companions.
PictureShape chosen_shape(PictureShape shape, int32_t channels)
{
    const bool all = channels == PIX_CHANNELS_UNDECIDED || channels == PIX_CHANNELS_RGB_MATTE_Z;
    shape.depth = shape.depth && all;
    shape.matte = shape.matte && (!shape.colour || all || channels == PIX_CHANNELS_RGB_MATTE);
    return shape;
}

// Throws the last message of the module, if there is one; earlier messages are printed. In messages
// the temporary name of a file is replaced by its final name.
[[noreturn]] void fail_in_module(const std::string &output, const std::string &temporary)
{
    check_interrupt(); // it may be the reason
    std::string words = text_of("cannot write: the module gives error ", vyn__err);
    for (const std::string &message : module_messages()) {
        words = message;
        const size_t at = words.find(temporary);
        if (at != std::string::npos) {
            words.replace(at, temporary.size(), file_part(output));
        }
        complain(output, words); // the Failure repeats the last one, which is not printed again
    }
    throw Failure(EXIT_IO, output, words);
}

// Writes the picture to files of which `main` is the main one. False when the module cannot.
bool write_picture(const Session &session, const std::string &main, const PictureShape &shape,
                   const std::string &output, RowReader *reader)
{
    ImageHandle *handle = standin_new_writer(main.c_str(), shape.width, shape.height,
                                             shape.colour ? 3 : 0, shape.matte, shape.depth);
    if (session.channels != PIX_CHANNELS_UNDECIDED) {
        standin_request(handle, PIX_CAP_OUTPUT_CHANNELS, session.channels);
    }
    forget_messages();
    if (session.module.write_open(handle) != 1) {
        vyn__free_obj(handle);
        return false;
    }
    Handle opened(handle, close_image);
    const ImageInfo &info = *handle->info;
    bool good = info.matte_count == shape.matte && info.aux_count == shape.depth;
    RowBuffers rows(reader->shape);
    void *array = rows.array.data();
    Progress progress(output, shape.height, "rows");
    for (int32_t row = 0; good && row < shape.height; ++row) {
        reader->read_row(rows.array.data());
        good = handle->scanline_proc(handle->priv->state, shape.height - 1 - row, array) == 0;
        progress.show(row + 1);
    }
    if (good) {
        reader->finish();
        good = handle->close_proc(opened.release()) == 0;
    }
    return good;
}

// The module derives the companions' paths from the name of the directory, so a link to a directory
// is replaced by its target.
std::string set_name(const std::string &output)
{
    const std::string name = plain_name(output);
    const std::filesystem::path directory = directory_of(name);
    std::error_code error;
    const auto real = std::filesystem::canonical(directory, error);
    const bool is_link = std::filesystem::is_symlink(directory, error);
    return is_link && !real.empty() ? (real / file_part(name)).string() : name;
}

ExitCode import_one(const Session &session, const std::string &input, const std::string &wanted)
{
    const std::string output = set_name(wanted);
    const std::string name = input == "-" ? "standard input" : input;
    const File file = open_input(input);
    const std::unique_ptr<RowReader> reader = open_picture(file.get(), name, session);
    const PictureShape shape = chosen_shape(reader->shape, session.channels);
    if (!shape.colour && shape.depth) {
        throw Failure(EXIT_DAMAGED, name,
                      "cannot import: PIX has no depth beside a matte without colour; "
                      "--channels matte leaves it out");
    }
    const Names set = files_of_set(output, shape);
    check_set(session.options, input, set);
    Outputs outputs(session.options.overwrite);
    const std::string main = add_set(&outputs, set, shape);
    if (!write_picture(session, main, shape, output, reader.get())) {
        fail_in_module(output, file_part(main));
    }
    outputs.put_in_place();
    for (const std::string &words : reader->notes) {
        note(name, words);
    }
    if (output != plain_name(wanted)) {
        note(wanted, "the directory is a link; all files of the set lie beside " + output);
    }
    return EXIT_FINE;
}

} // namespace

ExitCode run_import(const Session &session)
{
    check_output(session.options);
    return run_work(session, "pix", import_one);
}
