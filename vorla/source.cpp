// Opening pictures through the module and reading their rows, with sentences for what goes wrong.
#include "vorla/source.h"

#include "host/messages.h"
#include "vorla/files.h"
#include "vorla/formats.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <optional>

namespace {

// --- Faults of files ------------------------------------------------------------------------

// What the file or the field pair of one kind says of itself, in the form of a depth file's header:
// the magic of a picture or a matte is its bits a pixel.
using Header = PixDepthHeader;

// Returns the subject of a sentence about a file. A single main file is "it", because the line
// begins with its name.
std::string name_of(const FileSet &files, FileKind kind, size_t field)
{
    const std::string &path = files.paths[kind][field];
    return kind != KIND_MAIN ? text_of("the ", KIND_NAMES[kind], " ", path)
           : files.fields    ? path
                             : "it";
}

// Reads what a file begins with, which is its header, and does not move standard input. Throws a
// Fault.
std::array<uint8_t, sizeof(PixHeader)> read_start(const FileSet &files, FileKind kind, size_t field)
{
    const std::string &path = files.paths[kind][field];
    const std::string name = name_of(files, kind, field);
    std::array<uint8_t, sizeof(PixHeader)> bytes = {};
    const int file =
        path == "/dev/stdin" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool opened = file >= 0;
    const ssize_t count = opened ? pread(file, bytes.data(), bytes.size(), 0) : -1;
    const std::string reason = strerror(path.empty() ? ENAMETOOLONG : errno);
    if (opened) {
        close(file);
    }
    if (count < 0) {
        const std::string verb = opened ? "cannot read" : "cannot open";
        const std::string which = files.fields ? " the field " + name : "";
        const std::string what = kind == KIND_MAIN ? verb + which : name + " cannot be read";
        throw Fault{kind, EXIT_IO, opened || kind == KIND_MAIN, what + ": " + reason};
    }
    if (count < static_cast<ssize_t>(kind == KIND_DEPTH ? sizeof(PixDepthHeader) : bytes.size())) {
        throw Fault{kind, EXIT_DAMAGED, true, name + " ends within its header"};
    }
    return bytes;
}

std::string size_of(const Header &header)
{
    return text_of(header.width, " x ", header.height);
}

Header read_field(const FileSet &files, FileKind kind, size_t field)
{
    const auto bytes = read_start(files, kind, field);
    Header depth;
    pix_parse_header(bytes.data(), &depth);
    PixHeader picture;
    pix_parse_header(bytes.data(), &picture);
    return kind == KIND_DEPTH ? depth : Header{picture.bits, picture.width, picture.height};
}

// Reads the headers of all fields, and joins them. Throws a Fault.
Header read_header(const FileSet &files, FileKind kind)
{
    const Header even = read_field(files, kind, 0);
    if (!files.fields) {
        return even;
    }
    const Header odd = read_field(files, kind, 1);
    Header whole;
    if (!pix_join_headers(even, odd, &whole)) {
        const Names &paths = files.paths[kind];
        throw Fault{kind, EXIT_DAMAGED, true,
                    text_of("the fields ", paths[0], ", ", size_of(even), " pixels, and ", paths[1],
                            ", ", size_of(odd), ", do not belong together")};
    }
    return whole;
}

// Finds what is wrong with the files of one kind: a file cannot be opened or read, or is of another
// kind; two fields do not belong together; or a companion does not fit the main file. The kind
// must have names. Without a fault, `*header` gets what the files say, unless `header` is null.
std::optional<Fault> find_fault(const FileSet &files, FileKind kind, Header *header = nullptr)
{
    const auto fail = [&](bool refuses, const auto &...words) {
        throw Fault{kind, EXIT_DAMAGED, refuses, text_of(name_of(files, kind, 0), " ", words...)};
    };
    try {
        const Header found = read_header(files, kind);
        const uint32_t tag = found.magic;
        if (kind == KIND_MAIN && tag != PIX_COLOUR_BITS && tag != PIX_MATTE_BITS) {
            const auto start = read_start(files, kind, 0);
            const std::string other = what_begins_with(start.data(), start.size());
            fail(true, other.empty() ? text_of("has ", tag, " bits a pixel, not 24 or 8")
                                     : "is " + other);
        }
        if (kind == KIND_MATTE && tag != PIX_MATTE_BITS) {
            fail(true, "has ", tag, " bits a pixel, not 8");
        }
        if (found.width > PIX_MAX_SIZE || found.height > PIX_MAX_SIZE) {
            fail(true, "is ", size_of(found), " pixels, more than 16383 x 16383");
        }
        if (kind == KIND_DEPTH && tag != PIX_MAGIC_DEPTH_INT && tag != PIX_MAGIC_DEPTH_FLOAT) {
            fail(false, "begins with ", tag, ", not with 56655 or 55655");
        }
        const Header main = read_header(files, KIND_MAIN);
        if (found.width != main.width || found.height != main.height) {
            fail(false, "is ", size_of(found), " pixels, the picture ", size_of(main));
        }
        if (header) {
            *header = found;
        }
        return std::nullopt;
    } catch (const Fault &fault) {
        return fault;
    }
}

// --- Opening --------------------------------------------------------------------------------

// The channel choices that open files of a kind and of those before it.
constexpr int32_t CHOICES[] = {PIX_CHANNELS_RGB, PIX_CHANNELS_RGB_MATTE, PIX_CHANNELS_RGB_MATTE_Z};

// Whether the module opens files of the kind, if there are any.
bool is_wanted(const Source &source, FileKind kind)
{
    const int32_t channels = source.session.channels;
    return !source.files.paths[kind].empty() &&
           (channels == PIX_CHANNELS_UNDECIDED || channels >= CHOICES[kind]);
}

// Returns words that tell which --channels opens the picture without a damaged companion.
std::string rest_opens(const Source &source, FileKind kind)
{
    const bool matte = std::ranges::any_of(source.files.paths[KIND_MATTE], may_exist);
    return kind == KIND_MAIN             ? ""
           : kind == KIND_DEPTH && matte ? "; --channels matte opens the picture without it"
                                         : "; --channels rgb opens the picture without it";
}

// The module has refused the picture; `reason` is the errno that it left.
[[noreturn]] void explain_open(const Source &source, int reason)
{
    for (const FileKind kind : KINDS) {
        const auto fault = is_wanted(source, kind) ? find_fault(source.files, kind) : std::nullopt;
        if (fault && fault->refuses) {
            const bool not_pix = kind == KIND_MAIN && fault->code == EXIT_DAMAGED;
            throw Failure(fault->code, source.name, not_pix ? "not PIX: " : "", fault->reason,
                          rest_opens(source, kind));
        }
    }
    if (module_said(PIX_MSG_INVALID_HEADER)) {
        throw Failure(EXIT_DAMAGED, source.name, "not PIX: ", module_messages().back());
    }
    fail_system(source.name, "cannot open", reason != 0 ? reason : ENOENT);
}

// Opens a handle on the picture with a channel choice. Throws a Failure.
Handle open_handle(const Source &source, int32_t channels)
{
    Handle handle(standin_new_reader(source.opened.c_str()), close_image);
    handle->name_is_exact = source.session.options.search ? 0 : 1;
    standin_request(handle.get(), PIX_CAP_INPUT_CHANNELS, channels);
    forget_messages();
    vyn__err = 0;
    errno = 0; // so that a file that ends is told from one that cannot be read
    if (const int32_t result = source.session.module.read_open(handle.get()); result != 1) {
        const bool no_memory = result < 0 || vyn__err == PIX_NO_MEMORY;
        explain_open(source, no_memory ? ENOMEM : errno);
    }
    return handle;
}

// A picture without colour has no companions, and those that were not asked for are not missing.
void find_dropped(Source *source)
{
    std::error_code error;
    const auto target = std::filesystem::canonical(source->files.paths[KIND_MAIN][0], error);
    for (const FileKind kind : COMPANIONS) {
        if (!source->shape.colour || source->is_open(kind) || !is_wanted(*source, kind)) {
            continue;
        }
        const std::string name = std::string("the ") + KIND_NAMES[kind];
        const std::string beside = error ? "" : companion_path(target, kind);
        if (std::ranges::any_of(source->files.paths[kind], may_exist)) {
            const Fault unknown = {kind, EXIT_IO, false, name + " is not opened"};
            source->dropped.push_back(find_fault(source->files, kind).value_or(unknown));
        } else if (!beside.empty() && may_exist(beside)) {
            source->dropped.push_back({kind, EXIT_DAMAGED, false,
                                       text_of(name, " ", beside, " stands beside the file that ",
                                               "the link leads to, not beside the link")});
        }
    }
}

// --- Rows -----------------------------------------------------------------------------------

// Finds the kind of file in which a row cannot be read, by reading it again with fewer kinds.
FileKind find_guilty(const Source &source, int32_t scanline)
{
    for (const FileKind kind : {KIND_MAIN, KIND_MATTE}) {
        const Handle handle = open_handle(source, CHOICES[kind]);
        void **rows = nullptr;
        if (handle->scanline_proc(handle->priv->state, scanline, &rows) != 0) {
            return kind;
        }
    }
    return source.is_open(KIND_DEPTH) ? KIND_DEPTH : KIND_MAIN;
}

// The module could not read the row; `reason` is the errno that it left.
[[noreturn]] void explain_row(const Source &source, int32_t row, int reason)
{
    const bool undecodable = module_said(PIX_MSG_CANNOT_DECODE);
    const int32_t scanline = source.shape.height - 1 - row;
    const FileKind kind = find_guilty(source, scanline);
    const std::string &path = source.files.paths[kind][source.files.fields ? row & 1 : 0];
    const std::string file = kind == KIND_MAIN && !source.files.fields ? "the file" : path;
    const std::string words = undecodable   ? text_of("the runs in ", file, " add up to more than ",
                                                      source.shape.width, " pixels")
                              : reason == 0 ? file + " ends too early"
                                            : file + ": " + strerror(reason);
    throw Failure(undecodable || reason == 0 ? EXIT_DAMAGED : EXIT_IO, source.name, "cannot ",
                  undecodable ? "decode" : "read", " scanline ", scanline, ": ", words,
                  rest_opens(source, kind));
}

} // namespace

void close_image(ImageHandle *handle)
{
    if (handle->close_proc) {
        (void)handle->close_proc(handle);
    } else {
        vyn__free_obj(handle);
    }
}

Source::Source(const Session &chosen, const std::string &picture)
    : session(chosen), handle(nullptr, close_image)
{
    const bool standard = picture == "-" || picture == "/dev/stdin";
    name = standard ? "standard input" : picture;
    opened = standard ? "/dev/stdin" : plain_name(picture);
    ready_input(opened);
    files = find_files(opened, session.options.search);
    reopen();
    const ImageInfo &info = *handle->info;
    if (info.width == 0 || info.height == 0) {
        throw Failure(EXIT_DAMAGED, name, "not PIX: its header says ", info.width, " x ",
                      info.height, " pixels");
    }
    shape = {info.width, info.height, info.channel_count == 3, info.matte_count == 1,
             info.aux_count == 1};
    if (strcmp(info.format_label, PIX_LABEL_FORMAT.text) != 0) {
        // Six digits, which is what the aspects have, so that square pixels are 1.
        const double aspect = double{info.aspect} * info.height / info.width;
        shape.pixel_aspect = static_cast<float>(std::round(aspect * 1e6) / 1e6);
    }
    Header depth = {};
    float_depth = shape.depth && !find_fault(files, KIND_DEPTH, &depth) &&
                  depth.magic == PIX_MAGIC_DEPTH_FLOAT;
    find_dropped(this);
}

void Source::reopen()
{
    handle = nullptr;
    handle = open_handle(*this, session.channels);
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

bool Source::is_open(FileKind kind) const
{
    const bool open[] = {true, shape.colour && shape.matte, shape.depth};
    return open[kind];
}

ExitCode Source::code_of_dropped() const
{
    return dropped.empty() ? EXIT_FINE : std::ranges::max(dropped, {}, &Dropped::code).code;
}

bool is_pix(const Session &session, const std::string &path)
{
    const File file = open_input(path);
    const bool answer = session.module.is_file(path.c_str(), file.get()) == 1;
    check_call(answer || ferror(file.get()) == 0, path == "/dev/stdin" ? "standard input" : path,
               "cannot read");
    return answer;
}
