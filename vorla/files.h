// Files in the making: each has a temporary name in the directory of its final one until all of
// them are put in place. What is not put in place is removed with the Outputs. What goes to a
// device or a pipe is spooled to a temporary file without a name, and so is standard input where
// one must move about in it.
#pragma once

#include "vorla/report.h"

#include <memory>

using File = std::unique_ptr<FILE, int (*)(FILE *)>; // fclose

// Throws a Failure, EXIT_IO, with the system's reason unless a call was good.
void check_call(bool good, const std::string &file, const std::string &what);

// Readies a file for reading. Standard input, "-" or "/dev/stdin", is read to its end into a
// temporary file, which takes its place, when it is a pipe or a terminal. Throws a Failure, also
// for the name of a pipe.
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

    // Gives all files their final names and removes those that are to be: the first added last.
    // A file that is replaced leaves its mode to the new one.
    void put_in_place();

  private:
    bool create(const std::string &name, const std::string &temporary);
    [[nodiscard]] std::string place(const Entry &entry, const std::string &done) const;

    bool overwrite;
    std::vector<Entry> entries;
    std::vector<std::string> made; // temporary files and new directories
};
