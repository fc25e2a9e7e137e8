// Reading headers, and the sentences about them.
#include "vorla/headers.h"

#include "format/header.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

namespace {

// How a sentence about a file begins. A main file alone is the one that the line is about already.
std::string name_of(const FileSet &files, const std::string &path, FileKind kind)
{
    if (kind != KIND_MAIN) {
        return std::string("the ") + kind_name(kind) + " " + path;
    }
    return files.fields ? path : "it";
}

std::string size_of(const Header &header)
{
    return std::to_string(header.width) + " x " + std::to_string(header.height);
}

// Reads `size` bytes at the start of the file. An errno, or -1 when the file is shorter.
int read_start(const std::string &path, uint8_t *bytes, size_t size)
{
    const bool standard = path == "/dev/stdin";
    const int file = standard ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return errno;
    }
    const ssize_t count = pread(file, bytes, size, 0);
    const int error = count < 0 ? errno : count < static_cast<ssize_t>(size) ? -1 : 0;
    if (!standard) {
        close(file);
    }
    return error;
}

Header read_one(const FileSet &files, const std::string &path, FileKind kind)
{
    uint8_t bytes[sizeof(PixHeader)] = {};
    Header header;
    const int error =
        read_start(path, bytes, kind == KIND_DEPTH ? sizeof(PixDepthHeader) : sizeof(PixHeader));
    if (error < 0) {
        header.fault = name_of(files, path, kind) + " ends within its header";
    } else if (error > 0) {
        header.error = error;
        header.fault = name_of(files, path, kind) + " cannot be read: " + strerror(error);
    } else if (kind == KIND_DEPTH) {
        header.tag = pix_long(bytes);
        header.width = pix_word(bytes + offsetof(PixDepthHeader, width));
        header.height = pix_word(bytes + offsetof(PixDepthHeader, height));
    } else {
        header.width = pix_word(bytes + offsetof(PixHeader, width));
        header.height = pix_word(bytes + offsetof(PixHeader, height));
        header.tag = pix_word(bytes + offsetof(PixHeader, bits));
    }
    return header;
}

// What the module refuses in a header that has been read; "" when nothing.
std::string refusal_of(const Header &header, FileKind kind)
{
    const std::string tag = std::to_string(header.tag);
    if (kind == KIND_MAIN && header.tag != PIX_COLOUR_BITS && header.tag != PIX_MATTE_BITS) {
        return " has " + tag + " bits a pixel, not 24 or 8";
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

const char *kind_name(FileKind kind)
{
    return kind == KIND_MATTE ? "matte" : "depth";
}

const std::vector<std::string> &paths_of(const FileSet &files, FileKind kind)
{
    return kind == KIND_MAIN ? files.main : kind == KIND_MATTE ? files.matte : files.depth;
}

Header read_header(const FileSet &files, FileKind kind)
{
    const std::vector<std::string> &paths = paths_of(files, kind);
    if (paths.empty()) {
        Header none;
        none.fault = "there is none";
        return none;
    }
    Header even = read_one(files, paths[0], kind);
    if (!files.fields || !even.fault.empty()) {
        return even;
    }
    Header odd = read_one(files, paths[1], kind);
    if (!odd.fault.empty()) {
        return odd;
    }
    if (even.width != odd.width || even.tag != odd.tag ||
        (even.height != odd.height && even.height != odd.height + 1)) {
        even.fault = "the fields " + paths[0] + ", " + size_of(even) + " pixels, and " + paths[1] +
                     ", " + size_of(odd) + ", do not belong together";
    }
    even.height += odd.height;
    return even;
}

std::string refused_header(const FileSet &files, FileKind kind)
{
    const Header header = read_header(files, kind);
    if (!header.fault.empty()) {
        return header.fault;
    }
    const std::string refusal = refusal_of(header, kind);
    return refusal.empty() ? "" : name_of(files, paths_of(files, kind)[0], kind) + refusal;
}

std::string header_fault(const FileSet &files, FileKind kind)
{
    std::string refused = refused_header(files, kind);
    if (!refused.empty() || kind == KIND_MAIN) {
        return refused;
    }
    const Header header = read_header(files, kind);
    const std::string name = name_of(files, paths_of(files, kind)[0], kind);
    if (kind == KIND_DEPTH && header.tag != PIX_MAGIC_DEPTH_INT &&
        header.tag != PIX_MAGIC_DEPTH_FLOAT) {
        return name + " begins with " + std::to_string(header.tag) + ", not with 56655 or 55655";
    }
    const Header main = read_header(files, KIND_MAIN);
    if (main.fault.empty() && (header.width != main.width || header.height != main.height)) {
        return name + " is " + size_of(header) + " pixels, the picture " + size_of(main);
    }
    return "";
}
