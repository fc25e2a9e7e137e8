// Making and filling temporary files.
#include "vorla/spool.h"

#include "vorla/report.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string spool_path()
{
    const char *directory = getenv("TMPDIR");
    return std::string(directory && directory[0] != '\0' ? directory : "/tmp") + "/vorla-XXXXXX";
}

void write_all(int file, const char *bytes, ssize_t size, const std::string &target)
{
    while (size > 0) {
        const ssize_t count = write(file, bytes, static_cast<size_t>(size));
        check_interrupt();
        if (count < 0) {
            fail_system(target, "cannot write");
        }
        bytes += count;
        size -= count;
    }
}

} // namespace

int make_spool()
{
    std::string path = spool_path();
    const int file = mkstemp(path.data());
    if (file < 0) {
        fail_system(path, "cannot make a temporary file");
    }
    unlink(path.c_str());
    return file;
}

void copy_all(int from, const std::string &source, int to, const std::string &target)
{
    std::vector<char> block(size_t{1} << 16);
    for (;;) {
        const ssize_t count = read(from, block.data(), block.size());
        check_interrupt();
        if (count < 0) {
            fail_system(source, "cannot read");
        }
        if (count == 0) {
            return;
        }
        write_all(to, block.data(), count, target);
    }
}

void make_input_seekable()
{
    if (lseek(STDIN_FILENO, 0, SEEK_CUR) >= 0) {
        return;
    }
    const int file = make_spool();
    copy_all(STDIN_FILENO, "standard input", file, spool_path());
    if (dup2(file, STDIN_FILENO) < 0) {
        fail_system("standard input", "cannot be replaced by a temporary file");
    }
    close(file);
}

void refuse_pipe(const std::string &name)
{
    struct stat entry;
    if (name != "/dev/stdin" && stat(name.c_str(), &entry) == 0 && S_ISFIFO(entry.st_mode)) {
        throw Failure(EXIT_IO, name,
                      "cannot read a pipe by its name; use the name - and have the shell open it: "
                      "vorla ... - <PIPE");
    }
}
