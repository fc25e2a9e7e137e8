// Which picture goes to which file, and which pictures are one.
#pragma once

#include "vorla/session.h"

// A picture to be read and the file to be made of it.
struct Job {
    std::string input;
    std::string output;
};

// What tells pictures apart that are named: the true path of the main file or the even field.
[[nodiscard]] std::string identity_of(const Session &session, const std::string &name);

// The jobs of export or import. `extension`, of the outputs, begins with a dot. A directory gets
// names that are made of those of the inputs; pictures named twice and both fields of one make one
// job. Throws a Failure, EXIT_USAGE, also when two pictures would make the same file.
[[nodiscard]] std::vector<Job> plan_jobs(const Session &session, const std::string &extension);

// The inputs of jobs.
[[nodiscard]] Names inputs_of(const std::vector<Job> &jobs);

// Throws a Failure, EXIT_USAGE, unless the output is a directory or there is one input.
void check_directory(const Options &options);

[[nodiscard]] bool is_directory(const std::string &name);
