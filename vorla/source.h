// Reading a picture through the module, row by row from the top.
#pragma once

#include "standin/standin.h"
#include "vorla/faults.h"
#include "vorla/names.h"
#include "vorla/picture.h"
#include "vorla/session.h"

#include <memory>

// A companion that is there but is not part of the open picture.
struct Dropped {
    const char *kind; // "matte" or "depth"
    std::string reason;
    ExitCode code; // EXIT_IO when it could not be opened or read, else EXIT_DAMAGED
};

struct CloseImage {
    void operator()(ImageHandle *handle) const;
};

// A picture that is open for reading. `rows` is the module's array of the last row read.
struct Source {
    const Session &session;
    std::string name;   // as shown to the user
    std::string opened; // the name that the module got
    std::unique_ptr<ImageHandle, CloseImage> handle;
    PictureShape shape;
    FileSet files; // companions that are not open included
    std::vector<Dropped> dropped;
    void **rows = nullptr;

    // Opens `picture`; "-" is standard input, which is spooled to a temporary file when it cannot
    // seek. Throws a Failure.
    Source(const Session &chosen, const std::string &picture);

    // Reads row `row`, counted from the top (scanline height - 1 - row), into `rows`. Rows in
    // increasing order cost the least. Throws a Failure: EXIT_DAMAGED, or EXIT_IO when the system
    // gave a reason.
    void read_row(int32_t row);

    // The same without words: false when the row cannot be read.
    [[nodiscard]] bool fetch_row(int32_t row);

    // Opens the picture again, so that the files stand before the first row.
    void reopen();

    // The highest exit code of the companions that were dropped.
    [[nodiscard]] ExitCode code_of_dropped() const;
};
