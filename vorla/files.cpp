// Temporary files, and giving them their final names.
#include "vorla/files.h"

#include "vorla/names.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;

std::string spool_path()
{
    const char *directory = getenv("TMPDIR");
    return std::string(directory && directory[0] != '\0' ? directory : "/tmp") + "/vorla-XXXXXX";
}

// Makes a file in $TMPDIR or /tmp that is gone when it is closed.
File make_spool()
{
    std::string path = spool_path();
    const int file = mkstemp(path.data());
    check_call(file >= 0, path, "cannot make a temporary file");
    unlink(path.c_str());
    return {fdopen(file, "w+"), fclose};
}

// Copies all that `from` still holds.
void copy_all(int from, const std::string &source, int to, const std::string &target)
{
    std::vector<char> block(size_t{1} << 16);
    ssize_t size = 1;
    while (size > 0) {
        size = read(from, block.data(), block.size());
        check_interrupt();
        check_call(size >= 0, source, "cannot read");
        ssize_t count = 0;
        for (ssize_t at = 0; at < size; at += count) {
            count = write(to, block.data() + at, static_cast<size_t>(size - at));
            check_interrupt();
            check_call(count >= 0, target, "cannot write");
        }
    }
}

bool is_standard_input(const std::string &name)
{
    return name == "-" || name == "/dev/stdin";
}

// Closes the stream, on which everything must have arrived; a spooled file is copied to its target.
void finish(File stream, const std::string &name, bool spooled)
{
    const bool standard = is_standard_output(name);
    const std::string shown = standard ? "standard output" : name;
    check_call(fflush(stream.get()) == 0 && ferror(stream.get()) == 0, shown, "cannot write");
    if (spooled) {
        (void)lseek(fileno(stream.get()), 0, SEEK_SET);
        const int target = standard ? dup(STDOUT_FILENO) : open(name.c_str(), O_WRONLY | O_CLOEXEC);
        check_call(target >= 0, shown, "cannot write");
        copy_all(fileno(stream.get()), "the temporary file", target, shown);
        check_call(close(target) == 0, shown, "cannot write");
    }
    check_call(fclose(stream.release()) == 0, shown, "cannot write");
}

} // namespace

void check_call(bool good, const std::string &file, const std::string &what)
{
    if (!good) {
        fail_system(file, what);
    }
}

void ready_input(const std::string &name)
{
    if (is_standard_input(name) && lseek(STDIN_FILENO, 0, SEEK_CUR) < 0) {
        const File spool = make_spool();
        copy_all(STDIN_FILENO, "standard input", fileno(spool.get()), spool_path());
        check_call(dup2(fileno(spool.get()), STDIN_FILENO) >= 0, "standard input",
                   "cannot be replaced by a temporary file");
    }
    std::error_code error;
    if (!is_standard_input(name) && fs::is_fifo(name, error)) {
        throw Failure(EXIT_IO, name,
                      "cannot read a pipe by its name; use the name - and have the shell open it: "
                      "vorla ... - <PIPE");
    }
}

File open_input(const std::string &name)
{
    ready_input(name);
    const bool standard = is_standard_input(name);
    File file(standard ? fdopen(dup(STDIN_FILENO), "r") : fopen(name.c_str(), "re"), fclose);
    check_call(file != nullptr, standard ? "standard input" : name, "cannot open");
    rewind(file.get()); // standard input may stand at its end
    return file;
}

bool is_standard_output(const std::string &name)
{
    return name == "-" || name == "/dev/stdout";
}

bool is_written_directly(const std::string &name)
{
    std::error_code error;
    return name == "-" || name.starts_with("/dev/fd/") || name.starts_with("/dev/std") ||
           name.starts_with("/proc/") || fs::is_other(name, error);
}

void check_free(const std::string &name, bool overwrite)
{
    std::error_code error;
    const fs::file_status entry = fs::symlink_status(name, error);
    const bool taken = fs::exists(entry) && !is_written_directly(name);
    if (taken && fs::is_directory(entry)) {
        fail_system(name, "cannot write", EISDIR);
    }
    if (taken && !overwrite) {
        throw Failure(EXIT_IO, name, "cannot write: the file exists; -f overwrites it");
    }
}

Outputs::~Outputs()
{
    for (; !made.empty(); made.pop_back()) {
        (void)remove(made.back().c_str());
    }
}

// Makes the temporary file. False when its name is taken.
bool Outputs::create(const std::string &name, const std::string &temporary)
{
    const int file = open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0) {
        check_call(errno == EEXIST, name, "cannot write");
        return false;
    }
    made.push_back(temporary);
    entries.push_back({name, temporary, {fdopen(file, "w+"), fclose}});
    return true;
}

const Outputs::Entry &Outputs::add(const std::string &name)
{
    static int count = 0;
    if (is_written_directly(name)) {
        entries.push_back({name, "", make_spool()});
        return entries.back();
    }
    const std::string directory = name.substr(0, name.size() - file_part(name).size());
    while (!create(name, text_of(directory, ".vorla-", getpid(), "-", ++count, ".tmp"))) {
    }
    return entries.back();
}

void Outputs::add_companion(const std::string &name, const std::string &file)
{
    const std::string directory = directory_of(name);
    if (mkdir(directory.c_str(), 0777) == 0) {
        made.push_back(directory);
    } else {
        check_call(errno == EEXIST, directory, "cannot make the directory");
    }
    check_call(create(name, directory + "/" + file), name, "cannot write");
}

void Outputs::add_stale(const std::string &name)
{
    entries.push_back({name, "", {nullptr, fclose}, true});
}

// Gives a file its name, or removes a stale file. Returns words on what was done, or "". `done`,
// which tells what was done before, is added to the message of a failure.
std::string Outputs::place(const Entry &entry, const std::string &done) const
{
    const char *from = entry.temporary.c_str();
    const char *to = entry.name.c_str();
    if (entry.stale) {
        const bool removed = unlink(to) == 0;
        check_call(removed || errno == ENOENT || errno == ENOTDIR, entry.name,
                   "cannot remove what belonged to the picture before" + done);
        return removed ? entry.name + " is removed" : "";
    }
    if (entry.temporary.empty()) {
        return "";
    }
    struct stat old;
    if (lstat(to, &old) == 0 && S_ISREG(old.st_mode)) {
        (void)chmod(from, old.st_mode & 07777);
    }
    // Without `overwrite` this fails when the name is taken, where the file system supports that.
    const unsigned how = overwrite ? 0 : RENAME_NOREPLACE;
    const bool placed = renameat2(AT_FDCWD, from, AT_FDCWD, to, how) == 0 ||
                        ((errno == EINVAL || errno == ENOSYS) && rename(from, to) == 0);
    check_call(placed, entry.name, "cannot give the file its name" + done);
    return entry.name + " is already in place";
}

void Outputs::put_in_place()
{
    for (Entry &entry : entries) {
        if (entry.stream) {
            finish(std::move(entry.stream), entry.name, entry.temporary.empty());
        }
    }
    std::string done;
    for (; !entries.empty(); entries.pop_back()) {
        const std::string fate = place(entries.back(), done.empty() ? "" : " (" + done + ")");
        done += (done.empty() || fate.empty() ? "" : ", ") + fate;
    }
    made.clear();
}
