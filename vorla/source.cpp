// Opening pictures through the module and reading their rows, with sentences for what goes wrong.
// What is wrong with files themselves is told in faults.cpp.
#include "vorla/source.h"

#include "host/messages.h"
#include "vorla/spool.h"

#include <string.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>

namespace {

using Handle = std::unique_ptr<ImageHandle, CloseImage>;

// Opens a handle on the picture with a channel choice. `result` is that of imageReadOpen; the
// handle is null, and errno as the module left it, when that is 0.
Handle open_handle(const Source &source, int32_t channels, int32_t *result)
{
    ImageHandle *handle = standin_new_reader(source.opened.c_str());
    handle->name_is_exact = source.session.options.search ? 0 : 1;
    if (channels != PIX_CHANNELS_UNDECIDED) {
        standin_request(handle, PIX_CAP_INPUT_CHANNELS, channels);
    }
    forget_messages();
    vyn__err = 0;
    errno = 0; // so that a file that ends is told from one that cannot be read
    *result = source.session.module.read_open(handle);
    if (*result == 0) {
        const int reason = errno;
        vyn__free_obj(handle);
        handle = nullptr;
        errno = reason;
    }
    return Handle(handle);
}

bool is_chosen(int32_t channels, FileKind kind)
{
    return channels == PIX_CHANNELS_UNDECIDED || channels == PIX_CHANNELS_RGB_MATTE_Z ||
           (kind == KIND_MATTE && channels == PIX_CHANNELS_RGB_MATTE);
}

// How to do without a companion that is damaged.
const char *rest_opens(FileKind kind)
{
    return kind == KIND_MAIN    ? ""
           : kind == KIND_MATTE ? "; --channels rgb opens the rest"
                                : "; --channels matte opens the rest";
}

// --- Failed opens ---------------------------------------------------------------------------

// The module has refused the picture; `reason` is the errno that it left.
[[noreturn]] void explain_open(const Source &source, int reason)
{
    const std::string words = module_messages().empty() ? "" : module_messages().back();
    if (vyn__err == PIX_NO_MEMORY) {
        fail_system(source.name, "cannot open", ENOMEM);
    }
    if (const auto fault = find_fault(source.files, KIND_MAIN)) {
        throw Failure(fault->code, source.name,
                      (fault->code == EXIT_IO ? "" : "not PIX: ") + fault->sentence);
    }
    for (const FileKind kind : COMPANIONS) { // one that cannot be opened is dropped
        const auto fault = is_chosen(source.session.channels, kind) ? find_fault(source.files, kind)
                                                                    : std::nullopt;
        if (fault && fault->refuses) {
            throw Failure(fault->code, source.name, fault->sentence, rest_opens(kind));
        }
    }
    if (module_said(PIX_MSG_INVALID_HEADER)) {
        throw Failure(EXIT_DAMAGED, source.name, "not PIX: " + words);
    }
    fail_system(source.name, "cannot open", reason > 0 ? reason : ENOENT);
}

// --- Dropped companions ---------------------------------------------------------------------

void note_dropped(Source *source, FileKind kind)
{
    for (const std::string &path : source->files.paths[kind]) {
        if (may_exist(path)) {
            const auto fault = find_fault(source->files, kind);
            source->dropped.push_back(
                {kind_name(kind),
                 fault ? fault->sentence : std::string("the ") + kind_name(kind) + " is not opened",
                 fault ? fault->code : EXIT_IO});
            return;
        }
    }
    std::error_code error;
    const auto real = std::filesystem::canonical(source->files.paths[KIND_MAIN][0], error);
    const std::string beside = error ? "" : companion_path(real.string(), kind);
    if (source->opened != "/dev/stdin" && !beside.empty() && may_exist(beside)) {
        source->dropped.push_back({kind_name(kind),
                                   text_of("the ", kind_name(kind), " ", beside,
                                           " stands beside the file that the link leads to, not "
                                           "beside the link"),
                                   EXIT_DAMAGED});
    }
}

// A picture without colour has no companions, and those that were not asked for are not missing.
void find_dropped(Source *source)
{
    for (const FileKind kind : COMPANIONS) {
        const bool open = kind == KIND_MATTE ? source->shape.matte : source->shape.depth;
        if (source->shape.colour && !open && is_chosen(source->session.channels, kind)) {
            note_dropped(source, kind);
        }
    }
}

// --- Failed rows ----------------------------------------------------------------------------

bool has_row(const Source &source, int32_t channels, int32_t scanline)
{
    int32_t result = 0;
    const Handle handle = open_handle(source, channels, &result);
    void **rows = nullptr;
    return result == 1 && handle->scanline_proc(handle->priv->state, scanline, &rows) == 0;
}

// Finds the kind of file in which a row cannot be read, by reading it again with fewer kinds.
FileKind find_guilty(const Source &source, int32_t scanline)
{
    const PictureShape &shape = source.shape;
    if (!shape.colour || !has_row(source, PIX_CHANNELS_RGB, scanline)) {
        return KIND_MAIN;
    }
    if (shape.matte && (!shape.depth || !has_row(source, PIX_CHANNELS_RGB_MATTE, scanline))) {
        return KIND_MATTE;
    }
    return shape.depth ? KIND_DEPTH : KIND_MAIN;
}

// The module could not read the row; `reason` is the errno that it left.
[[noreturn]] void explain_row(const Source &source, int32_t row, int reason)
{
    const bool undecodable = module_said(PIX_MSG_CANNOT_DECODE);
    const int32_t scanline = source.shape.height - 1 - row;
    const FileKind kind = find_guilty(source, scanline);
    const std::string &path = source.files.paths[kind][source.files.fields ? row & 1 : 0];
    const std::string file = kind == KIND_MAIN && !source.files.fields ? "the file" : path;
    if (undecodable) {
        throw Failure(EXIT_DAMAGED, source.name, "cannot decode scanline ", scanline,
                      ": the runs in ", file, " add up to more than ", source.shape.width,
                      " pixels", rest_opens(kind));
    }
    throw Failure(reason == 0 ? EXIT_DAMAGED : EXIT_IO, source.name, "cannot read scanline ",
                  scanline, ": ", file, reason > 0 ? ": " : " ends too early",
                  reason > 0 ? strerror(reason) : "", rest_opens(kind));
}

// --- Open pictures --------------------------------------------------------------------------

void describe(Source *source)
{
    const ImageInfo &info = *source->handle->info;
    PictureShape &shape = source->shape;
    if (info.width == 0 || info.height == 0) {
        throw Failure(EXIT_DAMAGED, source->name,
                      "not PIX: its header says " + std::to_string(info.width) + " x " +
                          std::to_string(info.height) + " pixels");
    }
    shape = {info.width, info.height, info.channel_count == 3, info.matte_count == 1,
             info.aux_count == 1};
    if (strcmp(info.format_label, PIX_LABEL_FORMAT.text) != 0) {
        // Six digits, which is what the aspects have, so that square pixels are 1.
        const double aspect = double{info.aspect} * info.height / info.width;
        shape.pixel_aspect = static_cast<float>(std::round(aspect * 1e6) / 1e6);
    }
}

} // namespace

void CloseImage::operator()(ImageHandle *handle) const
{
    (void)handle->close_proc(handle);
}

Source::Source(const Session &chosen, const std::string &picture) : session(chosen)
{
    const bool standard = picture == "-" || picture == "/dev/stdin";
    name = standard ? "standard input" : picture;
    opened = standard ? "/dev/stdin" : plain_name(picture);
    refuse_pipe(opened);
    if (standard) {
        make_input_seekable();
    }
    reopen();
    describe(this);
    find_dropped(this);
}

void Source::reopen()
{
    int32_t result = 0;
    handle.reset();
    handle = open_handle(*this, session.channels, &result);
    const int reason = errno;
    files = find_files(opened, session.options.search);
    if (result == 0) {
        explain_open(*this, reason);
    }
    if (result != 1) {
        fail_system(name, "cannot open", ENOMEM);
    }
}

bool Source::fetch_row(int32_t row)
{
    check_interrupt();
    forget_messages();
    errno = 0;
    return handle->scanline_proc(handle->priv->state, shape.height - 1 - row, &rows) == 0;
}

void Source::read_row(int32_t row)
{
    if (!fetch_row(row)) {
        explain_row(*this, row, errno);
    }
}

ExitCode Source::code_of_dropped() const
{
    ExitCode code = EXIT_FINE;
    for (const Dropped &companion : dropped) {
        code = worst(code, companion.code);
    }
    return code;
}
