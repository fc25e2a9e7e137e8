// Files in the making: each has a temporary name in the directory of its final name until all of
// them are put in place. The destructor of Outputs removes files that were not put in place. Output
// to a device or a pipe is first written to a temporary file without a name; and standard input is
// copied to such a file when it cannot seek.
#pragma once

#include "vorla/report.h"

#include <memory>

using File = std::unique_ptr<FILE, int (*)(FILE *)>; // fclose

// Throws a Failure, EXIT_IO, with the system's reason unless a call was good.
void check_call(bool good, const std::string &file, const std::string &what);

// Prepares a file for reading. When standard input ("-" or "/dev/stdin") cannot seek, it is read to
// its end into a temporary file, which then replaces it. Throws a Failure; also when the file is a
// pipe that has a name.
void ready_input(const std::string &name);

// Does the same, and opens the file. Throws a Failure.
[[nodiscard]] File open_input(const std::string &name);

// "-" and "/dev/stdout".
[[nodiscard]] bool is_standard_output(const std::string &name);

// True of standard output, devices, pipes and what /dev and /proc name.
[[nodiscard]] bool is_written_directly(const std::string &name);

// Throws a Failure, EXIT_IO, for a name that is taken: by a directory, or, without `overwrite`, by
// anything but a device or a pipe.
void check_free(const std::string &name, bool overwrite);

class Outputs {
  public:
    explicit Outputs(bool may_overwrite) : overwrite(may_overwrite) {}
    ~Outputs();
    Outputs(const Outputs &) = delete;
    Outputs &operator=(const Outputs &) = delete;

    struct Entry {
        std::string name;
        std::string temporary; // "" when it is spooled or stale
        File stream;           // can seek
        bool stale = false;
    };

    // Each of these throws a Failure when it cannot do its work.

    // Adds an empty file, which the caller writes through its stream, or by its temporary name.
    // The result is good until the next one is added; the stream lives as long as the Outputs.
    const Entry &add(const std::string &name);

    // Adds a file with `file` as the last part of its temporary name. The directory is made unless
    // it is there.
    void add_companion(const std::string &name, const std::string &file);

    // Adds a file to be removed, which need not exist.
    void add_stale(const std::string &name);

    // Gives all files their final names and removes the stale ones, in reverse order: the file that
    // was added first comes last. A file that is replaced leaves its mode to the new one.
    void put_in_place();

  private:
    bool create(const std::string &name, const std::string &temporary);
    [[nodiscard]] std::string place(const Entry &entry, const std::string &done) const;

    bool overwrite;
    std::vector<Entry> entries;
    std::vector<std::string> made; // temporary files and new directories
};
