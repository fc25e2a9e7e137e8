// Reading a picture through the module, row by row from the top.
#pragma once

#include "vorla/picture.h"
#include "vorla/session.h"

#include <memory>

// What is wrong with the files of one kind.
struct Fault {
    FileKind kind;
    ExitCode code;      // EXIT_IO when a file cannot be opened or read, else EXIT_DAMAGED
    bool refuses;       // the module refuses the picture for it; else it does without the kind
    std::string reason; // a sentence that names the file, unless that is the main file alone
};

using Dropped = Fault; // why a companion that is there is not open

using Handle = std::unique_ptr<ImageHandle, void (*)(ImageHandle *)>; // close_image

// Closes an image; frees a handle on which none has been opened.
void close_image(ImageHandle *handle);

// A picture that is open for reading. `rows` is the module's array of the last row read.
struct Source {
    const Session &session;
    std::string name;   // as shown to the user
    std::string opened; // the name that the module got
    FileSet files;      // companions that are not open included
    Handle handle;
    PictureShape shape;
    bool float_depth = false; // else its samples are integers
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

    // Whether the files of a kind are open. The matte of a picture without colour is its main file.
    [[nodiscard]] bool is_open(FileKind kind) const;

    // The highest exit code of the companions that were dropped.
    [[nodiscard]] ExitCode code_of_dropped() const;
};

// Asks the module whether a file is PIX. "/dev/stdin" is standard input, as above. Throws a Failure
// when the file cannot be read.
[[nodiscard]] bool is_pix(const Session &session, const std::string &path);
