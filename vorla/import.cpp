// `vorla import`: a picture of another format is read row by row and written through the module,
// under temporary names, which outputs.h replaces. Companions stand where names.h says. A picture
// without colour has none, whatever stands there.
#include "vorla/batch.h"
#include "vorla/commands.h"
#include "vorla/faults.h"
#include "vorla/formats.h"
#include "vorla/outputs.h"
#include "vorla/plan.h"
#include "vorla/spool.h"

#include <unistd.h>

#include <filesystem>

namespace {

// --- The input ------------------------------------------------------------------------------

struct CloseFile {
    void operator()(FILE *file) const
    {
        if (file != stdin) {
            (void)fclose(file);
        }
    }
};

using InputFile = std::unique_ptr<FILE, CloseFile>;

InputFile open_input(const std::string &name)
{
    if (name == "-") {
        make_input_seekable();
        rewind(stdin); // a spooled one stands at its end
        return InputFile(stdin);
    }
    refuse_pipe(name);
    InputFile file(fopen(name.c_str(), "re"));
    if (!file) {
        fail_system(name, "cannot open");
    }
    return file;
}

// By what it begins with.
std::unique_ptr<RowReader> open_picture(FILE *file, const std::string &name, const Session &session)
{
    const Options &options = session.options;
    errno = 0;
    const PictureFormat *format = format_of_stream(file);
    if (ferror(file)) {
        fail_system(name, "cannot read");
    }
    if (!format) {
        const bool is_pix = session.module.is_file(name.c_str(), file) == 1;
        throw Failure(EXIT_DAMAGED, name, "cannot import: it ",
                      is_pix ? "is PIX already; vorla export makes PNG and OpenEXR of it"
                             : "begins like neither PNG nor OpenEXR");
    }
    if ((options.linear || options.depth_scale != 1) && !format->has_linear) {
        throw Failure(EXIT_USAGE, name,
                      "cannot import: --linear and --depth-scale are for OpenEXR");
    }
    if (!format->open) {
        throw Failure(EXIT_USAGE, name, "cannot read ", format->words, ": vorla was built without");
    }
    return format->open(file, name, options);
}

// --- The files of the set -------------------------------------------------------------------

bool has_companion(const PictureShape &shape, FileKind kind)
{
    return shape.colour && (kind == KIND_MATTE ? shape.matte : shape.depth);
}

void check_name(const std::string &output, const PictureShape &shape)
{
    if (is_written_directly(output)) {
        throw Failure(EXIT_USAGE, output,
                      "cannot import: a picture is a set of files, which need names");
    }
    if (field_names(output).is_field) {
        throw Failure(EXIT_USAGE, output,
                      "cannot import: it is a field's name, and fields are not written");
    }
    for (const FileKind kind : COMPANIONS) {
        const std::string directory = directory_of(companion_path(output, kind));
        if (shape.colour && is_same_file(directory, directory_of(output))) {
            throw Failure(EXIT_USAGE, output,
                          std::string("cannot import: a picture in the directory of the ") +
                              file_part(directory) + " files would be its own companion");
        }
    }
}

// Throws unless the picture `output` can be made: its name is one that a set can have, and, unless
// files are overwritten, neither it, nor a field of it, nor what would become its companion is
// there.
void check_set(const Options &options, const std::string &output, const PictureShape &shape)
{
    check_name(output, shape);
    check_free(output, options.overwrite);
    const FieldNames fields = field_names(output);
    for (const std::string &field : {fields.even, fields.odd}) {
        if (!options.overwrite && access(field.c_str(), F_OK) == 0) {
            throw Failure(EXIT_IO, output,
                          "cannot write: there is the field " + field +
                              ", which the picture would hide; -f makes it all the same");
        }
    }
    for (const FileKind kind : COMPANIONS) {
        if (shape.colour) {
            check_free(companion_path(output, kind), options.overwrite);
        }
    }
}

// Adds the files of the set, and returns the temporary name of the main one. Companions that the
// new picture does not have would be taken for its own: they are removed.
std::string add_set(Outputs *outputs, const std::string &output, const PictureShape &shape)
{
    std::string main = outputs->add_name(output);
    for (const FileKind kind : COMPANIONS) {
        const std::string companion = companion_path(output, kind);
        if (has_companion(shape, kind)) {
            outputs->add_directory(directory_of(companion));
            outputs->add_name(companion, file_part(main));
        } else if (shape.colour) {
            outputs->add_stale(companion);
        }
    }
    return main;
}

// --- Writing through the module -------------------------------------------------------------

// What of the picture is to be written: the channel choice is about companions.
PictureShape chosen_shape(const PictureShape &shape, int32_t channels)
{
    const bool all = channels == PIX_CHANNELS_UNDECIDED || channels == PIX_CHANNELS_RGB_MATTE_Z;
    PictureShape chosen = shape;
    chosen.depth = shape.depth && all;
    chosen.matte = shape.matte && (!shape.colour || all || channels == PIX_CHANNELS_RGB_MATTE);
    return chosen;
}

// Ends with the module's own words, if it has had any.
[[noreturn]] void fail_in_module(const std::string &output, const Outputs &outputs)
{
    const std::vector<std::string> &words = module_messages();
    for (size_t at = 0; at + 1 < words.size(); ++at) {
        complain(output, outputs.with_final_names(words[at]));
    }
    throw Failure(EXIT_IO, output,
                  words.empty() ? "cannot write: the module gives error " + std::to_string(vyn__err)
                                : outputs.with_final_names(words.back()));
}

struct CloseImage {
    void operator()(ImageHandle *handle) const
    {
        (void)(handle->close_proc ? handle->close_proc(handle) : 0);
    }
};

using Handle = std::unique_ptr<ImageHandle, CloseImage>;

// Null when the module cannot make all of the files.
Handle open_output(const Session &session, const std::string &name, const PictureShape &shape)
{
    const int mattes = shape.matte ? 1 : 0;
    const int depths = shape.depth ? 1 : 0;
    ImageHandle *handle = standin_new_writer(name.c_str(), shape.width, shape.height,
                                             shape.colour ? 3 : 0, mattes, depths);
    if (session.channels != PIX_CHANNELS_UNDECIDED) {
        standin_request(handle, PIX_CAP_OUTPUT_CHANNELS, session.channels);
    }
    forget_messages();
    if (session.module.write_open(handle) != 1) {
        vyn__free_obj(handle);
        return nullptr;
    }
    Handle opened(handle);
    const bool whole = handle->info->matte_count == mattes && handle->info->aux_count == depths;
    return whole ? std::move(opened) : nullptr;
}

void write_set(const Session &session, const std::string &output, const PictureShape &shape,
               RowReader *reader, Outputs *outputs)
{
    Handle handle = open_output(session, add_set(outputs, output, shape), shape);
    if (!handle) {
        fail_in_module(output, *outputs);
    }
    RowBuffers rows(reader->shape);
    Progress progress(output, shape.height, "rows");
    for (int32_t row = 0; row < shape.height; ++row) {
        reader->read_row(rows.array.data());
        void *array = rows.array.data();
        if (handle->scanline_proc(handle->priv->state, shape.height - 1 - row, array) != 0) {
            fail_in_module(output, *outputs);
        }
        progress.show(row + 1);
    }
    reader->finish();
    ImageHandle *whole = handle.release();
    if (whole->close_proc(whole) != 0) {
        fail_in_module(output, *outputs);
    }
}

// Companions are told from the name of the directory, which must then be its own.
std::string set_name(const std::string &output)
{
    std::string name = plain_name(output);
    std::error_code error;
    const std::string directory = directory_of(name);
    if (std::filesystem::is_symlink(directory, error)) {
        const auto real = std::filesystem::canonical(directory, error);
        return error ? name : (real / file_part(name)).string();
    }
    return name;
}

ExitCode import_one(const Session &session, const Job &job)
{
    const Options &options = session.options;
    const std::string output = set_name(job.output);
    const std::string name = job.input == "-" ? "standard input" : job.input;
    if (options.skips && may_exist(output)) {
        return EXIT_FINE;
    }
    for (const std::string &file :
         {output, companion_path(output, KIND_MATTE), companion_path(output, KIND_DEPTH)}) {
        if (is_same_file(job.input, file)) {
            throw Failure(EXIT_USAGE, file, "cannot write: it is the picture to import");
        }
    }
    const InputFile file = open_input(job.input);
    const std::unique_ptr<RowReader> reader = open_picture(file.get(), name, session);
    const PictureShape shape = chosen_shape(reader->shape, session.channels);
    if (!shape.colour && shape.depth) {
        throw Failure(EXIT_DAMAGED, name,
                      "cannot import: PIX has no depth beside a matte without colour; "
                      "--channels matte leaves it out");
    }
    check_set(options, output, shape);
    Outputs outputs(options.overwrite);
    write_set(session, output, shape, reader.get(), &outputs);
    outputs.put_in_place();
    for (const std::string &words : reader->notes) {
        note(name, words);
    }
    return EXIT_FINE;
}

} // namespace

ExitCode run_import(const Session &session)
{
    const Options &options = session.options;
    check_directory(options);
    for (const char *end : {".png", ".exr", "/"}) {
        if (!is_directory(options.output) && ends_in(options.output, end)) {
            throw Failure(EXIT_USAGE, options.output,
                          end[0] == '/' ? "no such directory"
                                        : text_of("cannot import: the name ends in ", end,
                                                  ", and what is made is PIX"));
        }
    }
    const std::vector<Job> jobs = plan_jobs(session, ".pix");
    return run_batch(session, options.output, inputs_of(jobs),
                     [&](size_t at) { return import_one(session, jobs[at]); });
}
