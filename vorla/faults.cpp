// Reading headers, and the sentences about them.
#include "vorla/faults.h"

#include "format/header.h"
#include "vorla/formats.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// How a sentence about a file begins. A main file alone is the one that the line is about already.
std::string name_of(const FileSet &files, size_t field, FileKind kind)
{
    const std::string &path = files.paths[kind][field];
    if (kind != KIND_MAIN) {
        return std::string("the ") + kind_name(kind) + " " + path;
    }
    return files.fields ? path : "it";
}

std::string size_of(const Header &header)
{
    return std::to_string(header.width) + " x " + std::to_string(header.height);
}

// The first bytes of a file, which both kinds of header fit in.
struct Start {
    uint8_t bytes[sizeof(PixHeader)] = {};
    bool opened = false;
    ssize_t count = -1; // that were read, or -1 with
    int error = 0;      // the system's
};

Start read_start(const std::string &path)
{
    Start start;
    const bool standard = path == "/dev/stdin";
    const int file = standard ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    start.opened = file >= 0;
    if (start.opened) {
        start.count = pread(file, start.bytes, sizeof start.bytes, 0);
    }
    start.error = path.empty() ? ENAMETOOLONG : errno;
    if (start.opened && !standard) {
        close(file);
    }
    return start;
}

// Joins the headers of all fields, if they belong together.
template <class Record>
std::optional<Header> parse(const std::vector<Start> &starts, uint32_t (*tag)(const Record &))
{
    Record whole;
    pix_parse_header(starts.front().bytes, &whole);
    Record odd;
    pix_parse_header(starts.back().bytes, &odd);
    if (starts.size() > 1 && !pix_join_headers(Record(whole), odd, &whole)) {
        return std::nullopt;
    }
    return Header{whole.width, whole.height, tag(whole)};
}

std::optional<Header> parse_kind(const std::vector<Start> &starts, FileKind kind)
{
    if (kind == KIND_DEPTH) {
        return parse<PixDepthHeader>(starts, [](const PixDepthHeader &h) { return h.magic; });
    }
    return parse<PixHeader>(starts, [](const PixHeader &h) { return uint32_t{h.bits}; });
}

std::vector<Start> read_starts(const FileSet &files, FileKind kind)
{
    std::vector<Start> starts;
    for (const std::string &path : files.paths[kind]) {
        starts.push_back(read_start(path));
    }
    return starts;
}

std::optional<Fault> find_unreadable(const FileSet &files, FileKind kind,
                                     const std::vector<Start> &starts)
{
    const size_t needed = kind == KIND_DEPTH ? sizeof(PixDepthHeader) : sizeof(PixHeader);
    for (size_t field = 0; field < starts.size(); ++field) {
        const Start &start = starts[field];
        const std::string name = name_of(files, field, kind);
        if (start.count < 0) {
            return Fault{EXIT_IO, start.opened,
                         kind != KIND_MAIN ? name + " cannot be read: " + strerror(start.error)
                         : files.fields && !start.opened
                             ? "cannot open the field " + name + ": " + strerror(start.error)
                             : std::string(start.opened ? "cannot read: " : "cannot open: ") +
                                   strerror(start.error),
                         !start.opened};
        }
        if (static_cast<size_t>(start.count) < needed) {
            return Fault{EXIT_DAMAGED, true, name + " ends within its header"};
        }
    }
    return std::nullopt;
}

// What the module refuses in a header that has been read, behind the name of the file; "" when
// nothing.
std::string refusal_of(const Header &header, FileKind kind, const Start &start)
{
    const std::string tag = std::to_string(header.tag);
    if (kind == KIND_MAIN && header.tag != PIX_COLOUR_BITS && header.tag != PIX_MATTE_BITS) {
        const std::string other = what_begins_with(start.bytes, sizeof start.bytes);
        return other.empty() ? " has " + tag + " bits a pixel, not 24 or 8" : " is " + other;
    }
    if (kind == KIND_MATTE && header.tag != PIX_MATTE_BITS) {
        return " has " + tag + " bits a pixel, not 8";
    }
    if (header.width > PIX_MAX_SIZE || header.height > PIX_MAX_SIZE) {
        return " is " + size_of(header) + " pixels, more than 16383 x 16383";
    }
    return "";
}

} // namespace

Header read_header(const FileSet &files, FileKind kind)
{
    const std::vector<Start> starts = read_starts(files, kind);
    return starts.empty() || find_unreadable(files, kind, starts)
               ? Header()
               : parse_kind(starts, kind).value_or(Header());
}

std::optional<Fault> find_fault(const FileSet &files, FileKind kind)
{
    const std::vector<Start> starts = read_starts(files, kind);
    if (std::optional<Fault> fault = find_unreadable(files, kind, starts);
        fault || starts.empty()) {
        return fault;
    }
    const std::optional<Header> joined = parse_kind(starts, kind);
    if (!joined) {
        const std::optional<Header> even = parse_kind({starts[0]}, kind);
        const std::optional<Header> odd = parse_kind({starts[1]}, kind);
        return Fault{EXIT_DAMAGED, true,
                     "the fields " + files.paths[kind][0] + ", " + size_of(*even) +
                         " pixels, and " + files.paths[kind][1] + ", " + size_of(*odd) +
                         ", do not belong together"};
    }
    const std::string name = name_of(files, 0, kind);
    const std::string refusal = refusal_of(*joined, kind, starts[0]);
    if (!refusal.empty()) {
        return Fault{EXIT_DAMAGED, true, name + refusal};
    }
    if (kind == KIND_DEPTH && joined->tag != PIX_MAGIC_DEPTH_INT &&
        joined->tag != PIX_MAGIC_DEPTH_FLOAT) {
        return Fault{EXIT_DAMAGED, false,
                     name + " begins with " + std::to_string(joined->tag) +
                         ", not with 56655 or 55655"};
    }
    const Header main = kind == KIND_MAIN ? *joined : read_header(files, KIND_MAIN);
    if (main.tag != 0 && (joined->width != main.width || joined->height != main.height)) {
        return Fault{EXIT_DAMAGED, false,
                     name + " is " + size_of(*joined) + " pixels, the picture " + size_of(main)};
    }
    return std::nullopt;
}

bool may_exist(const std::string &path)
{
    struct stat entry;
    return path.empty() || lstat(path.c_str(), &entry) == 0 ||
           (errno != ENOENT && errno != ENOTDIR);
}
