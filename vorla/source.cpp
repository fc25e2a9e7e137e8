// Opening pictures through the module and reading their rows, with sentences for what goes wrong.
// What headers say is told in headers.cpp.
#include "vorla/source.h"

#include "host/messages.h"
#include "vorla/headers.h"
#include "vorla/spool.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

namespace {

bool exists(const std::string &path)
{
    return faccessat(AT_FDCWD, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

// Opens a handle on the picture with a channel choice, -1 for none. Result as of imageReadOpen; the
// handle is gone when it is 0.
int32_t open_handle(const Source &source, int32_t channels, ImageHandle **handle)
{
    *handle = standin_new_reader(source.opened.c_str());
    (*handle)->name_is_exact = source.session->search ? 0 : 1;
    if (channels >= 0) {
        standin_request(*handle, PIX_CAP_INPUT_CHANNELS, channels);
    }
    vyn__err = 0;
    errno = 0; // so that a file that ends is told from one that cannot be read
    const int32_t result = source.session->module.read_open(*handle);
    if (result == 0) {
        const int reason = errno;
        vyn__free_obj(*handle);
        *handle = nullptr;
        errno = reason;
    }
    return result;
}

// --- Failed opens ---------------------------------------------------------------------------

// The main file cannot be opened, for `reason`, or only one of two fields can.
ExitCode explain_missing(const FileSet &files, int reason, std::string *why)
{
    if (files.fields) {
        for (size_t field = 0; field < 2; ++field) {
            if (!is_readable(files.main[field])) {
                *why = "cannot open the field " + files.main[field] + ": " + strerror(errno);
                return EXIT_IO;
            }
        }
    }
    // The module tries the names of the fields last, and what it says is about those.
    if (exists(files.main[0]) && !is_readable(files.main[0])) {
        reason = errno;
    }
    *why = std::string("cannot open: ") + strerror(reason > 0 ? reason : ENOENT);
    return EXIT_IO;
}

// The main file is open, but its header is not what the module wants.
ExitCode explain_refusal(const FileSet &files, const std::string &words, std::string *why)
{
    const Header header = read_header(files, KIND_MAIN);
    if (header.error != 0) {
        *why = std::string("cannot read: ") + strerror(header.error);
        return EXIT_IO;
    }
    const std::string fault = header_fault(files, KIND_MAIN);
    *why = "not PIX: " + (fault.empty() ? words : fault);
    return EXIT_DAMAGED;
}

// Says why the module has refused the picture; `reason` is the errno that it left, `words` its last
// message.
ExitCode explain_open(const FileSet &files, int reason, const std::string &words, std::string *why)
{
    if (vyn__err == PIX_NO_MEMORY) {
        *why = "cannot open: " + std::string(strerror(ENOMEM));
        return EXIT_IO;
    }
    if (module_said(message_number(PIX_MSG_INVALID_HEADER))) {
        return explain_refusal(files, words, why);
    }
    if (module_said(message_number(PIX_MSG_CANNOT_OPEN))) {
        const bool unreadable = module_said(0); // it was opened, then
        if (unreadable && reason == ESPIPE) {
            *why = std::string("cannot read: ") + strerror(reason);
            return EXIT_IO;
        }
        return unreadable ? explain_refusal(files, words, why)
                          : explain_missing(files, reason, why);
    }
    for (const FileKind kind : {KIND_MATTE, KIND_DEPTH}) { // one that cannot be opened is dropped
        const std::vector<std::string> &paths = paths_of(files, kind);
        *why =
            std::all_of(paths.begin(), paths.end(), is_readable) ? refused_header(files, kind) : "";
        if (!why->empty()) {
            return read_header(files, kind).error > 0 ? EXIT_IO : EXIT_DAMAGED;
        }
    }
    *why = words;
    return EXIT_DAMAGED;
}

// --- Dropped companions ---------------------------------------------------------------------

void note_dropped(Source *source, FileKind kind, const std::string &words)
{
    const std::vector<std::string> &paths = paths_of(source->files, kind);
    if (std::any_of(paths.begin(), paths.end(), exists)) {
        const std::string fault = header_fault(source->files, kind);
        const bool unreadable = read_header(source->files, kind).error != 0;
        const std::string last = words.empty() ? "the name of its companion is too long" : words;
        source->dropped.push_back({kind_name(kind), fault.empty() ? last : fault,
                                   unreadable || fault.empty() ? EXIT_IO : EXIT_DAMAGED});
    }
}

// A picture without colour has no companions, and those that were not asked for are not missing.
void find_dropped(Source *source, const std::string &words)
{
    const int32_t channels = source->session->channels;
    if (source->colour && !source->matte && channels != PIX_CHANNELS_RGB) {
        note_dropped(source, KIND_MATTE, words);
    }
    if (source->colour && !source->depth &&
        (channels == PIX_CHANNELS_UNDECIDED || channels == PIX_CHANNELS_RGB_MATTE_Z)) {
        note_dropped(source, KIND_DEPTH, words);
    }
}

// --- Failed rows ----------------------------------------------------------------------------

bool has_row(const Source &source, int32_t channels, int32_t scanline)
{
    ImageHandle *handle = nullptr;
    const int32_t result = open_handle(source, channels, &handle);
    void **rows = nullptr;
    const bool good =
        result == 1 && handle->scanline_proc(handle->priv->state, scanline, &rows) == 0;
    if (handle) {
        (void)handle->close_proc(handle);
    }
    return good;
}

// Finds the kind of file in which a row cannot be read, by reading it again with fewer kinds.
FileKind find_guilty(const Source &source, int32_t scanline)
{
    if (!source.colour || !has_row(source, PIX_CHANNELS_RGB, scanline)) {
        return KIND_MAIN;
    }
    const bool is_matte =
        source.matte && (!source.depth || !has_row(source, PIX_CHANNELS_RGB_MATTE, scanline));
    if (is_matte) {
        return KIND_MATTE;
    }
    return source.depth ? KIND_DEPTH : KIND_MAIN;
}

std::string explain_row(const Source &source, int32_t row, bool undecodable, int reason)
{
    const int32_t scanline = source.height - 1 - row;
    const FileKind kind = find_guilty(source, scanline);
    const std::string &path = paths_of(source.files, kind)[source.files.fields ? row & 1 : 0];
    const std::string file = kind == KIND_MAIN && !source.files.fields ? "the file" : path;
    if (undecodable) {
        return "cannot decode scanline " + std::to_string(scanline) + ": the runs in " + file +
               " add up to more than " + std::to_string(source.width) + " pixels";
    }
    return "cannot read scanline " + std::to_string(scanline) + ": " + file +
           (reason > 0 ? std::string(": ") + strerror(reason) : " ends too early");
}

} // namespace

// --- The interface --------------------------------------------------------------------------

ExitCode try_open_source(const Session &session, const std::string &name, Source *source,
                         std::string *why)
{
    const bool standard = name == "-" || name == "/dev/stdin";
    *source = {};
    source->session = &session;
    source->name = standard ? "standard input" : name;
    source->opened = standard ? "/dev/stdin" : plain_name(name);
    if (standard && make_input_seekable(why) != EXIT_FINE) {
        return EXIT_IO;
    }
    std::vector<std::string> kept = {""};
    set_subject(source->name, &kept);
    const int32_t result = open_handle(*source, session.channels, &source->handle);
    const int reason = errno;
    source->files = find_files(source->opened, session.search);
    ExitCode code = EXIT_FINE;
    if (result == 1) {
        const ImageInfo &info = *source->handle->info;
        source->width = info.width;
        source->height = info.height;
        source->colour = info.channel_count == 3;
        source->matte = info.matte_count == 1;
        source->depth = info.aux_count == 1;
        find_dropped(source, kept.back());
        if (info.width == 0 || info.height == 0) {
            *why = "not PIX: its header says " + std::to_string(info.width) + " x " +
                   std::to_string(info.height) + " pixels";
            code = worst(EXIT_DAMAGED, close_source(source));
        }
    } else if (result == 0) {
        code = explain_open(source->files, reason, kept.back(), why);
    } else {
        *why = "cannot open: " + std::string(strerror(ENOMEM));
        code = worst(EXIT_IO, close_source(source));
    }
    set_subject(source->name);
    return code;
}

ExitCode open_source(const Session &session, const std::string &name, Source *source)
{
    std::string why;
    const ExitCode code = try_open_source(session, name, source, &why);
    if (code != EXIT_FINE) {
        complain(source->name, why);
    }
    for (const Dropped &dropped : source->dropped) {
        complain(source->name, dropped.reason + "; it is left out");
    }
    return code;
}

ExitCode code_of_dropped(const Source &source)
{
    ExitCode code = EXIT_FINE;
    for (const Dropped &dropped : source.dropped) {
        code = worst(code, dropped.code);
    }
    return code;
}

ExitCode try_read_row(Source *source, int32_t row, std::string *why)
{
    std::vector<std::string> kept;
    set_subject(source->name, &kept);
    errno = 0;
    ExitCode code = EXIT_FINE;
    if (source->handle->scanline_proc(source->handle->priv->state, source->height - 1 - row,
                                      &source->rows) != 0) {
        const int reason = errno;
        const bool undecodable = module_said(message_number(PIX_MSG_CANNOT_DECODE));
        *why = explain_row(*source, row, undecodable, reason);
        code = undecodable || reason == 0 ? EXIT_DAMAGED : EXIT_IO;
    }
    set_subject(source->name);
    return code;
}

ExitCode read_row(Source *source, int32_t row)
{
    std::string why;
    const ExitCode code = try_read_row(source, row, &why);
    if (code != EXIT_FINE) {
        complain(source->name, why);
    }
    return code;
}

ExitCode close_source(Source *source)
{
    if (!source->handle) {
        return EXIT_FINE;
    }
    const int32_t result = source->handle->close_proc(source->handle);
    source->handle = nullptr;
    source->rows = nullptr;
    return result == 0 ? EXIT_FINE : EXIT_IO;
}
