// Temporary names, and giving files their final ones. Signals wait while names on disk change.
#include "vorla/pending.h"

#include "vorla/doomed.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

// --- Names ----------------------------------------------------------------------------------

ExitCode fail(const std::string &name, const std::string &what)
{
    complain(name, what + ": " + strerror(errno));
    return EXIT_IO;
}

const std::string &shown(const std::string &name)
{
    static const std::string standard_output = "standard output";
    return name == "-" ? standard_output : name;
}

std::string temporary_name(const std::string &name)
{
    static int count = 0;
    const size_t slash = name.rfind('/');
    return (slash == std::string::npos ? "" : name.substr(0, slash + 1)) + ".vorla-" +
           std::to_string(getpid()) + "-" + std::to_string(++count) + ".tmp";
}

// Closes a stream whose content is lost. Standard output is kept, without the rest: the end of the
// program does not complain of it again.
void abandon(FILE *stream)
{
    if (stream == stdout) {
        __fpurge(stream);
        clearerr(stream);
    } else if (stream) {
        (void)fclose(stream);
    }
}

// A new file, on the list of those that a signal removes. Null with errno.
FILE *create_doomed(const std::string &temporary)
{
    const SignalsHeld held;
    const int file = open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0) {
        return nullptr;
    }
    FILE *stream = doom(temporary, false) ? fdopen(file, "w+") : nullptr;
    if (!stream) {
        const int reason = errno;
        (void)close(file);
        (void)unlink(temporary.c_str());
        spare(temporary);
        errno = reason;
    }
    return stream;
}

PendingFile *add_stream(PendingSet *set, const std::string &name, const std::string &temporary,
                        FILE *stream)
{
    if (!stream) {
        (void)fail(shown(name), "cannot write");
        return nullptr;
    }
    set->files.push_back({name, temporary, stream, PENDING_MADE});
    return &set->files.back();
}

// --- Putting in place -----------------------------------------------------------------------

// Renames unless the new name is taken, which is EEXIST; also where the file system has no such
// call.
int rename_to_free(const char *from, const char *to)
{
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return -1;
    }
    if (link(from, to) == 0) {
        return unlink(from);
    }
    struct stat entry;
    if (errno == EEXIST || lstat(to, &entry) == 0) {
        errno = EEXIST;
        return -1;
    }
    return rename(from, to);
}

// Exchanges two files, also where the file system has no such call.
int exchange(const char *one, const char *other)
{
    if (renameat2(AT_FDCWD, one, AT_FDCWD, other, RENAME_EXCHANGE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return -1;
    }
    const std::string third = std::string(one) + ".old";
    if (rename(other, third.c_str()) != 0) {
        return -1;
    }
    if (rename(one, other) == 0) {
        return rename(third.c_str(), one);
    }
    const int reason = errno;
    (void)rename(third.c_str(), other);
    errno = reason;
    return -1;
}

// Keeps what is replaced, so that it can be taken back.
int place(PendingFile *file, bool overwrite)
{
    const char *from = file->temporary.c_str();
    const char *to = file->name.c_str();
    if (rename_to_free(from, to) == 0) {
        file->state = PENDING_PLACED;
        return 0;
    }
    if (errno != EEXIST || !overwrite || exchange(from, to) != 0) {
        return -1;
    }
    file->state = PENDING_SWAPPED;
    return 0;
}

ExitCode put_aside(PendingSet *set, const std::string &name)
{
    if (const ExitCode code = check_free(name, set->overwrite)) {
        return code;
    }
    const std::string temporary = temporary_name(name);
    if (rename_to_free(name.c_str(), temporary.c_str()) == 0) {
        set->files.push_back({name, temporary, nullptr, PENDING_ASIDE});
        return EXIT_FINE;
    }
    return errno == ENOENT || errno == ENOTDIR
               ? EXIT_FINE
               : fail(name, "cannot remove what belonged to the picture before");
}

// Undoes what has been done with the names. What cannot be given its name again is not lost.
void take_back(PendingFile *file)
{
    const char *name = file->name.c_str();
    const char *temporary = file->temporary.c_str();
    int result = 0;
    switch (file->state) {
    case PENDING_MADE:
        break;
    case PENDING_PLACED:
        result = rename_to_free(name, temporary);
        break;
    case PENDING_SWAPPED:
        result = exchange(temporary, name);
        break;
    case PENDING_ASIDE:
        result = rename_to_free(temporary, name);
        break;
    }
    if (result != 0 && file->state != PENDING_PLACED) {
        (void)fail(file->name, "the file that stood there is now " + file->temporary);
        spare(file->temporary);
        file->temporary.clear();
    }
}

void remove_temporary(const PendingFile &file)
{
    if (!file.temporary.empty()) {
        (void)unlink(file.temporary.c_str());
        spare(file.temporary);
    }
}

} // namespace

PendingSet::~PendingSet()
{
    const SignalsHeld held;
    for (PendingFile &file : files) {
        abandon(file.stream);
        remove_temporary(file);
    }
    for (const std::string &directory : directories) {
        (void)rmdir(directory.c_str());
        spare(directory);
    }
}

bool is_written_directly(const std::string &name)
{
    struct stat entry;
    return name == "-" || name.starts_with("/dev/") || name.starts_with("/proc/") ||
           (stat(name.c_str(), &entry) == 0 && !S_ISREG(entry.st_mode) && !S_ISDIR(entry.st_mode));
}

bool is_same_file(const std::string &one, const std::string &other)
{
    struct stat first;
    struct stat second;
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

ExitCode check_free(const std::string &name, bool overwrite)
{
    struct stat entry;
    if (is_written_directly(name) || lstat(name.c_str(), &entry) != 0) {
        return EXIT_FINE;
    }
    if (S_ISDIR(entry.st_mode)) {
        errno = EISDIR;
        return fail(name, "cannot write");
    }
    if (!overwrite) {
        complain(name, "cannot write: exists; -f overwrites it");
        return EXIT_IO;
    }
    return EXIT_FINE;
}

PendingFile *add_pending(PendingSet *set, const std::string &name)
{
    if (is_written_directly(name)) {
        return add_stream(set, name, "", name == "-" ? stdout : fopen(name.c_str(), "we"));
    }
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::string temporary = temporary_name(name);
        FILE *stream = create_doomed(temporary);
        if (stream || errno != EEXIST) {
            return add_stream(set, name, temporary, stream);
        }
    }
    return add_stream(set, name, "", nullptr);
}

PendingFile *add_pending_as(PendingSet *set, const std::string &name, const std::string &temporary)
{
    return add_stream(set, name, temporary, create_doomed(temporary));
}

ExitCode add_directory(PendingSet *set, const std::string &path)
{
    const SignalsHeld held;
    if (mkdir(path.c_str(), 0777) != 0) {
        return errno == EEXIST ? EXIT_FINE : fail(path, "cannot make the directory");
    }
    set->directories.push_back(path);
    if (!doom(path, true)) {
        return fail(path, "cannot make the directory");
    }
    return EXIT_FINE;
}

ExitCode close_stream(PendingFile *file)
{
    FILE *stream = file->stream;
    file->stream = nullptr;
    if (!stream) {
        return EXIT_FINE;
    }
    const bool failed_before = ferror(stream) != 0;
    if ((stream == stdout ? fflush(stream) : fclose(stream)) != 0) {
        const ExitCode code = fail(shown(file->name), "cannot write");
        abandon(stream == stdout ? stream : nullptr);
        return code;
    }
    return failed_before ? EXIT_IO : EXIT_FINE; // complained of when it was written
}

ExitCode put_in_place(PendingSet *set, const std::vector<std::string> &stale)
{
    for (PendingFile &file : set->files) {
        if (const ExitCode code = close_stream(&file)) {
            return code;
        }
    }
    const SignalsHeld held;
    ExitCode code = EXIT_FINE;
    const size_t made = set->files.size();
    for (size_t at = 0; at < stale.size() && code == EXIT_FINE; ++at) {
        code = put_aside(set, stale[at]);
    }
    for (size_t at = made; at-- > 0 && code == EXIT_FINE;) {
        PendingFile &file = set->files[at];
        if (!file.temporary.empty() && place(&file, set->overwrite) != 0) {
            code = fail(file.name, "cannot give the file its name");
        }
    }
    if (code != EXIT_FINE) {
        for (PendingFile &file : set->files) {
            take_back(&file);
        }
        return code;
    }
    for (const PendingFile &file : set->files) {
        remove_temporary(file);
    }
    for (const std::string &directory : set->directories) {
        spare(directory);
    }
    set->files.clear();
    set->directories.clear();
    return EXIT_FINE;
}
