// Spooling standard input.
#include "vorla/spool.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

std::string failure(const std::string &what)
{
    return what + ": " + strerror(errno);
}

// Opens a temporary file that is gone when it is closed. -1, with errno, when it cannot.
int open_temporary(std::string *path)
{
    const char *directory = getenv("TMPDIR");
    *path = std::string(directory && directory[0] != '\0' ? directory : "/tmp") + "/vorla-XXXXXX";
    const int file = mkstemp(path->data());
    if (file >= 0) {
        unlink(path->c_str());
    }
    return file;
}

bool write_all(int file, const char *bytes, size_t size)
{
    while (size > 0) {
        const ssize_t count = write(file, bytes, size);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        if (count > 0) {
            bytes += count;
            size -= static_cast<size_t>(count);
        }
    }
    return true;
}

// Copies standard input to `file`. Returns what went wrong, or "".
std::string copy_input(int file, const std::string &path)
{
    std::vector<char> block(size_t{1} << 16);
    for (;;) {
        const ssize_t count = read(STDIN_FILENO, block.data(), block.size());
        if (count == 0) {
            return "";
        }
        if (count < 0 && errno != EINTR) {
            return failure("cannot read");
        }
        if (count > 0 && !write_all(file, block.data(), static_cast<size_t>(count))) {
            return failure("cannot write to " + path);
        }
    }
}

} // namespace

ExitCode make_input_seekable(std::string *why)
{
    if (lseek(STDIN_FILENO, 0, SEEK_CUR) >= 0) {
        return EXIT_FINE;
    }
    std::string path;
    const int file = open_temporary(&path);
    if (file < 0) {
        *why = failure("cannot make " + path);
        return EXIT_IO;
    }
    *why = copy_input(file, path);
    if (why->empty() && dup2(file, STDIN_FILENO) < 0) {
        *why = failure("cannot take " + path + " for it");
    }
    close(file);
    return why->empty() ? EXIT_FINE : EXIT_IO;
}
