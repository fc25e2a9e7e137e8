// `vorla import`: a PNG or OpenEXR file is read row by row and written through the module. Which
// files that makes is left to import_set, and how they come to stand under their names to pending.
#include "vorla/commands.h"
#include "vorla/exr_file.h"
#include "vorla/import_set.h"
#include "vorla/names.h"
#include "vorla/png_file.h"
#include "vorla/progress.h"
#include "vorla/spool.h"

#include "host/capabilities.h"

#include <cerrno>
#include <cstring>
#include <memory>

namespace {

constexpr int EXR_FIRST_BYTE = 0x76;

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

// By its name, or else by its first byte. Nonzero, with errno, when that cannot be read.
int tell_exr(FILE *file, const std::string &name, bool *is_exr)
{
    *is_exr = ends_in(name, ".exr");
    if (*is_exr || ends_in(name, ".png")) {
        return 0;
    }
    const int first = getc(file);
    *is_exr = first == EXR_FIRST_BYTE;
    return first == EOF ? ferror(file) : ungetc(first, file) == EOF;
}

ExitCode open_input(const std::string &name, InputFile *file)
{
    if (name != "-") {
        file->reset(fopen(name.c_str(), "re"));
        if (!*file) {
            complain(name, std::string("cannot open: ") + strerror(errno));
            return EXIT_IO;
        }
        return EXIT_FINE;
    }
    std::string why;
    const ExitCode code = make_input_seekable(&why);
    if (code != EXIT_FINE) {
        complain("standard input", why);
    }
    rewind(stdin); // a spooled one stands at its end
    file->reset(stdin);
    return code;
}

ExitCode open_picture(FILE *file, const ImportOptions &options, std::unique_ptr<RowReader> *reader)
{
    const std::string name = options.input == "-" ? "standard input" : options.input;
    bool is_exr = false;
    if (tell_exr(file, options.input, &is_exr) != 0) {
        complain(name, std::string("cannot read: ") + strerror(errno));
        return EXIT_IO;
    }
    if (options.linear && !is_exr) {
        complain(name, "cannot import: --linear is for OpenEXR");
        return EXIT_USAGE;
    }
    return is_exr ? open_exr(file, name, {options.linear, false, options.matte_only}, reader)
                  : open_png(file, name, options.matte_only, reader);
}

// --- Rows -----------------------------------------------------------------------------------

// Buffers for a row of the shape; `array` is what the module and the readers take.
struct RowBuffers {
    std::vector<std::vector<int32_t>> buffers;
    std::vector<void *> array;
};

RowBuffers make_buffers(const PictureShape &shape)
{
    RowBuffers rows;
    const size_t width = static_cast<size_t>(shape.width);
    const int bytes = matte_index(shape) + (shape.matte ? 1 : 0);
    for (int channel = 0; channel < bytes; ++channel) {
        rows.buffers.emplace_back((width + 3) / 4);
    }
    if (shape.depth) {
        rows.buffers.emplace_back(width);
    }
    for (std::vector<int32_t> &buffer : rows.buffers) {
        rows.array.push_back(buffer.data());
    }
    return rows;
}

// What of the picture is to be written: the channel choice is about companions.
PictureShape chosen_shape(const PictureShape &shape, int32_t channels)
{
    const bool all = channels == PIX_CHANNELS_UNDECIDED || channels == PIX_CHANNELS_RGB_MATTE_Z;
    PictureShape chosen = shape;
    chosen.depth = shape.depth && all;
    chosen.matte = shape.matte && (!shape.colour || all || channels == PIX_CHANNELS_RGB_MATTE);
    return chosen;
}

// --- Writing through the module -------------------------------------------------------------

// Replaces the temporary names in a message of the module.
std::string with_final_names(std::string text, const PendingSet &set)
{
    for (const PendingFile &file : set.files) {
        for (size_t at = 0; (at = text.find(file.temporary, at)) != std::string::npos;
             at += file.name.size()) {
            text.replace(at, file.temporary.size(), file.name);
        }
    }
    return text;
}

// Complains with the module's own words, if it has had any.
ExitCode fail_in_module(const std::string &output, const PendingSet &set,
                        const std::vector<std::string> &kept)
{
    for (const std::string &text : kept) {
        complain(output, with_final_names(text, set));
    }
    if (kept.empty()) {
        complain(output, "cannot write: the module gives error " + std::to_string(vyn__err));
    }
    return EXIT_IO;
}

ImageHandle *open_output(const Session &session, const std::string &temporary,
                         const PictureShape &shape)
{
    ImageHandle *handle =
        standin_new_writer(temporary.c_str(), shape.width, shape.height, shape.colour ? 3 : 0,
                           shape.matte ? 1 : 0, shape.depth ? 1 : 0);
    if (session.channels >= 0) {
        standin_request(handle, PIX_CAP_OUTPUT_CHANNELS, session.channels);
    }
    if (session.module.write_open(handle) != 1) {
        vyn__free_obj(handle);
        return nullptr;
    }
    return handle;
}

// Copies all rows. `good` becomes false when the module has failed, which the caller explains.
ExitCode copy_rows(RowReader *reader, ImageHandle *handle, bool *good)
{
    RowBuffers rows = make_buffers(reader->shape);
    const int32_t height = reader->shape.height;
    for (int32_t row = 0; row < height; ++row) {
        if (const ExitCode code = reader->read_row(rows.array.data())) {
            return code;
        }
        void *array = rows.array.data();
        if (handle->scanline_proc(handle->priv->state, height - 1 - row, array) != 0) {
            *good = false;
            return EXIT_FINE;
        }
        show_progress(row + 1);
    }
    return reader->finish();
}

ExitCode write_set(const Session &session, const std::string &output, const PictureShape &shape,
                   RowReader *reader, PendingSet *set)
{
    std::vector<std::string> kept;
    set_subject(output, &kept);
    ImageHandle *handle = open_output(session, set->files.front().temporary, shape);
    bool good = handle != nullptr;
    ExitCode code = EXIT_FINE;
    if (good) {
        good = handle->info->matte_count == (shape.matte ? 1 : 0) &&
               handle->info->aux_count == (shape.depth ? 1 : 0);
        if (good) {
            start_progress(output, shape.height, "rows");
            code = copy_rows(reader, handle, &good);
            end_progress();
        }
        good = handle->close_proc(handle) == 0 && good;
    }
    set_subject(output);
    return good ? code : fail_in_module(output, *set, kept);
}

ExitCode import_picture(const Session &session, const ImportOptions &options, RowReader *reader)
{
    const PictureShape shape = chosen_shape(reader->shape, session.channels);
    if (!shape.colour && shape.depth) {
        complain(options.input, "cannot import: PIX has no depth beside a matte without colour; "
                                "--channels matte leaves it out");
        return EXIT_DAMAGED;
    }
    if (const ExitCode code = check_set(options.output, shape, options.overwrite)) {
        return code;
    }
    PendingSet set;
    set.overwrite = options.overwrite;
    if (const ExitCode code = add_set(&set, options.output, shape)) {
        return code;
    }
    for (PendingFile &file : set.files) { // the module opens them itself
        if (const ExitCode code = close_stream(&file)) {
            return code;
        }
    }
    if (const ExitCode code = write_set(session, options.output, shape, reader, &set)) {
        return code;
    }
    return put_in_place(&set, foreign_companions(options.output, shape));
}

} // namespace

ExitCode run_import(const Session &session, const ImportOptions &options)
{
    for (const std::string &file : {options.output, companion_path(options.output, "mask"),
                                    companion_path(options.output, "depth")}) {
        if (is_same_file(options.input, file)) {
            complain(file, "cannot write: it is the picture to import");
            return EXIT_USAGE;
        }
    }
    InputFile file;
    if (const ExitCode code = open_input(options.input, &file)) {
        return code;
    }
    std::unique_ptr<RowReader> reader; // goes before the file does
    if (const ExitCode code = open_picture(file.get(), options, &reader)) {
        return code;
    }
    return import_picture(session, options, reader.get());
}
