// Which picture goes to which file, which pictures are one, and what cannot be an output.
#pragma once

#include "vorla/session.h"

// Throws a Failure, EXIT_USAGE, if that is wrong.
template <class... Parts>
void refuse_if(bool wrong, const std::string &file, const Parts &...why)
{
    if (wrong) {
        throw Failure(EXIT_USAGE, file, why...);
    }
}

[[nodiscard]] bool is_directory(const std::string &name);

// Identifies the picture that a name stands for: the real path of its main file or its even field.
[[nodiscard]] std::string identity_of(const Session &session, const std::string &name);

// Throws a Failure, EXIT_USAGE, unless the output of export or import is a directory, or there is
// one input and the output has a name that suits what is made of it.
void check_output(const Options &options);

// The work on a picture and the file to be made of it.
using Work = ExitCode(const Session &session, const std::string &input, const std::string &output);

// Does the work on all inputs, and returns the highest exit code. If the output is a directory, the
// outputs have the names of the inputs, with that extension. A picture that is named twice, or by
// both of its fields, is worked on once. With --skip-existing, inputs are skipped whose outputs
// exist. Throws a Failure, EXIT_USAGE, when two pictures, or a picture and the view of its depth,
// would make the same file.
[[nodiscard]] ExitCode run_work(const Session &session, const std::string &extension, Work *work);
