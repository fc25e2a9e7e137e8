// Files in the making: each has a temporary name in the directory of its final one until all of
// them are put in place. What is not put in place is removed with the Outputs.
#pragma once

#include "vorla/report.h"

#include <cstdio>
#include <deque>
#include <vector>

// True of devices, pipes, standard output ("-") and what /dev and /proc name: what goes there is
// spooled until it is whole.
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

    // Each of these throws a Failure when it cannot do its work.

    // Adds a file and opens its stream, which is the Outputs' and can seek.
    [[nodiscard]] FILE *add(const std::string &name);

    // Adds an empty file that the caller opens by the temporary name which is the result. Its last
    // part is `file`, or, when that is empty, one that nothing has yet.
    std::string add_name(const std::string &name, const std::string &file = "");

    // Makes a directory unless it is there.
    void add_directory(const std::string &path);

    // Has put_in_place remove a file, which need not exist.
    void add_stale(const std::string &path);

    // Gives all files their final names, the first added last, and before that one removes the
    // stale ones. A file that is replaced leaves its mode to the new one.
    void put_in_place();

    // Replaces the temporary names in a text.
    [[nodiscard]] std::string with_final_names(std::string text) const;

  private:
    struct Entry {
        std::string name;
        std::string temporary; // "" when it is spooled
        FILE *stream = nullptr;
    };

    Entry &create(const std::string &name, const std::string &file);
    void place(const Entry &entry, const std::string &done) const;

    bool overwrite;
    std::deque<Entry> entries;
    std::vector<std::string> directories; // made for the files
    std::vector<std::string> stale;
};
