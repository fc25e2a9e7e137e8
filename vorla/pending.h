// Files in the making: each has a temporary name in the directory of its final one until all of
// them are put in place together. What is not put in place is removed, also when a signal ends the
// program.
#pragma once

#include "vorla/report.h"

#include <cstdio>
#include <deque>
#include <string>
#include <vector>

// What stands under the temporary name of a file: the file itself; nothing, once it has its final
// name; the one that it has replaced; or, put aside, one that goes without being replaced.
enum PendingState { PENDING_MADE, PENDING_PLACED, PENDING_SWAPPED, PENDING_ASIDE };

struct PendingFile {
    std::string name;
    std::string temporary;  // "" when it is written under its own name
    FILE *stream = nullptr; // open for writing; the set's
    PendingState state = PENDING_MADE;
};

struct PendingSet {
    std::deque<PendingFile> files;
    std::vector<std::string> directories; // made for the files, removed with them
    bool overwrite = false;

    PendingSet() = default;
    PendingSet(const PendingSet &) = delete;
    PendingSet &operator=(const PendingSet &) = delete;
    ~PendingSet();
};

// True of devices, pipes, standard output ("-") and what /dev and /proc name: these have no file in
// the making.
[[nodiscard]] bool is_written_directly(const std::string &name);

// True when both names lead to one file that is there.
[[nodiscard]] bool is_same_file(const std::string &one, const std::string &other);

// Complains (EXIT_IO) of a name that is taken: by a directory, or, without `overwrite`, by anything
// but a device or a pipe.
[[nodiscard]] ExitCode check_free(const std::string &name, bool overwrite);

// Adds a file to the set, "-" for standard output, and opens its stream. Null after a complaint.
// The result is the set's.
[[nodiscard]] PendingFile *add_pending(PendingSet *set, const std::string &name);

// The same under a temporary name that the caller has chosen, in the directory of `name`.
[[nodiscard]] PendingFile *add_pending_as(PendingSet *set, const std::string &name,
                                          const std::string &temporary);

// Makes a directory unless it is there.
[[nodiscard]] ExitCode add_directory(PendingSet *set, const std::string &path);

// Closes the stream of the file, if it is open. EXIT_IO, after a complaint, when the file is not
// whole.
[[nodiscard]] ExitCode close_stream(PendingFile *file);

// Gives all files their final names, the last added first, and removes the `stale` ones, which need
// not exist, but may only when the set overwrites. When one fails, all is as it was before.
[[nodiscard]] ExitCode put_in_place(PendingSet *set, const std::vector<std::string> &stale);
