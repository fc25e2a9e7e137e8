// Temporary names, and giving files their final ones.
#include "vorla/outputs.h"

#include "vorla/names.h"
#include "vorla/spool.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace {

std::string shown(const std::string &name)
{
    return name == "-" ? "standard output" : name;
}

// Beside `name`.
std::string beside(const std::string &name, const std::string &file)
{
    return name.substr(0, name.size() - file_part(name).size()) + file;
}

// Closes the stream, on which everything must have arrived; a spooled file is copied to its target.
void finish_stream(FILE *stream, const std::string &name, bool spooled)
{
    int failure = fflush(stream) != 0 || ferror(stream) ? errno : 0;
    if (spooled && failure == 0) {
        (void)lseek(fileno(stream), 0, SEEK_SET);
        const bool standard = name == "-";
        (void)fflush(stdout);
        const int target = standard ? STDOUT_FILENO : open(name.c_str(), O_WRONLY | O_CLOEXEC);
        if (target < 0) {
            fail_system(name, "cannot write");
        }
        copy_all(fileno(stream), "the temporary file", target, shown(name));
        failure = standard || close(target) == 0 ? 0 : errno;
    }
    if (failure != 0) {
        fail_system(shown(name), "cannot write", failure);
    }
}

} // namespace

bool is_written_directly(const std::string &name)
{
    struct stat entry;
    return name == "-" || name.starts_with("/dev/fd/") || name.starts_with("/dev/std") ||
           name.starts_with("/proc/") ||
           (stat(name.c_str(), &entry) == 0 && !S_ISREG(entry.st_mode) && !S_ISDIR(entry.st_mode));
}

void check_free(const std::string &name, bool overwrite)
{
    struct stat entry;
    if (is_written_directly(name) || lstat(name.c_str(), &entry) != 0) {
        return;
    }
    if (S_ISDIR(entry.st_mode)) {
        fail_system(name, "cannot write", EISDIR);
    }
    if (!overwrite) {
        throw Failure(EXIT_IO, name, "cannot write: exists; -f overwrites it");
    }
}

Outputs::~Outputs()
{
    for (const Entry &entry : entries) {
        if (entry.stream) {
            (void)fclose(entry.stream);
        }
        if (!entry.temporary.empty()) {
            (void)unlink(entry.temporary.c_str());
        }
    }
    for (const std::string &directory : directories) {
        (void)rmdir(directory.c_str());
    }
}

Outputs::Entry &Outputs::create(const std::string &name, const std::string &file)
{
    static int count = 0;
    for (;;) {
        const std::string temporary =
            beside(name, file.empty() ? ".vorla-" + std::to_string(getpid()) + "-" +
                                            std::to_string(++count) + ".tmp"
                                      : file);
        const int made = open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (made >= 0) {
            entries.push_back({name, temporary, fdopen(made, "w+")});
            return entries.back();
        }
        if (errno != EEXIST || !file.empty() || count > 1000) {
            fail_system(name, "cannot write");
        }
    }
}

FILE *Outputs::add(const std::string &name)
{
    if (is_written_directly(name)) {
        entries.push_back({name, "", fdopen(make_spool(), "w+")});
        return entries.back().stream;
    }
    return create(name, "").stream;
}

std::string Outputs::add_name(const std::string &name, const std::string &file)
{
    Entry &entry = create(name, file);
    (void)fclose(entry.stream);
    entry.stream = nullptr;
    return entry.temporary;
}

void Outputs::add_directory(const std::string &path)
{
    if (mkdir(path.c_str(), 0777) == 0) {
        directories.push_back(path);
    } else if (errno != EEXIST) {
        fail_system(path, "cannot make the directory");
    }
}

void Outputs::add_stale(const std::string &path)
{
    stale.push_back(path);
}

// The rename, which without `overwrite` takes nobody's name, where the file system can tell.
void Outputs::place(const Entry &entry, const std::string &done) const
{
    const char *from = entry.temporary.c_str();
    const char *to = entry.name.c_str();
    struct stat old;
    if (lstat(to, &old) == 0 && S_ISREG(old.st_mode)) {
        (void)chmod(from, old.st_mode & 07777);
    }
    const unsigned how = overwrite ? 0 : RENAME_NOREPLACE;
    int result = renameat2(AT_FDCWD, from, AT_FDCWD, to, how);
    if (result != 0 && (errno == EINVAL || errno == ENOSYS)) {
        result = rename(from, to);
    }
    if (result != 0) {
        fail_system(entry.name, "cannot give the file its name" + done);
    }
}

void Outputs::put_in_place()
{
    for (Entry &entry : entries) {
        if (FILE *stream = entry.stream) {
            finish_stream(stream, entry.name, entry.temporary.empty());
            entry.stream = nullptr;
            if (fclose(stream) != 0) {
                fail_system(shown(entry.name), "cannot write");
            }
        }
    }
    std::string done;
    for (size_t at = entries.size(); at-- > 0;) {
        for (const std::string &path : at == 0 ? stale : std::vector<std::string>()) {
            if (unlink(path.c_str()) == 0) {
                done += (done.empty() ? " (" : ", ") + path + " is removed";
            } else if (errno != ENOENT && errno != ENOTDIR) {
                fail_system(path, "cannot remove what belonged to the picture before" +
                                      (done.empty() ? "" : done + ")"));
            }
        }
        if (!entries[at].temporary.empty()) {
            place(entries[at], done.empty() ? "" : done + ")");
            entries[at].temporary.clear();
            done += (done.empty() ? " (" : ", ") + entries[at].name + " is the new one";
        }
    }
    entries.clear();
    directories.clear();
}

std::string Outputs::with_final_names(std::string text) const
{
    for (const Entry &entry : entries) {
        for (size_t at = 0; (at = text.find(entry.temporary, at)) != std::string::npos;
             at += entry.name.size()) {
            text.replace(at, entry.temporary.size(), entry.name);
        }
    }
    return text;
}
