// Which picture goes to which file, when pictures go into a directory, and names of outputs that
// are wrong usage.
#pragma once

#include "vorla/names.h"
#include "vorla/report.h"

#include <functional>
#include <string>
#include <vector>

// A picture to be read and the file to be made of it.
struct Job {
    std::string input;
    std::string output;
};

[[nodiscard]] bool is_directory(const std::string &name);

// The end of a name in letters of either case is taken off, if it is there.
[[nodiscard]] std::string without(const std::string &name, const std::string &end);

// Jobs into the directory, each under the name that `name_of` makes of the last part of an input,
// field endings aside. `verb` is the command's name. Both fields of a picture make one job. Throws
// a Failure, EXIT_USAGE, also when two pictures would make the same file.
[[nodiscard]] std::vector<Job>
plan_directory(const std::string &verb, const Names &inputs, const std::string &directory,
               const std::function<std::string(const std::string &)> &name_of);
