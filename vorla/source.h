// Reading a picture through the module, row by row from the top.
#pragma once

#include "standin/standin.h"
#include "vorla/names.h"
#include "vorla/report.h"
#include "vorla/session.h"

#include <string>
#include <vector>

// A companion that is there but is not part of the open picture.
struct Dropped {
    const char *kind; // "matte" or "depth"
    std::string reason;
    ExitCode code; // EXIT_IO when it could not be opened or read, EXIT_DAMAGED when it does not fit
};

// A picture that is open for reading. `rows` is the module's array of the last row read: red, green
// and blue if there is colour (one byte a pixel), then matte, then depth (int32_t a pixel).
struct Source {
    ImageHandle *handle = nullptr;
    std::string name; // as shown to the user
    int32_t width = 0;
    int32_t height = 0;
    bool colour = false;
    bool matte = false;
    bool depth = false;
    void **rows = nullptr;
    const Session *session = nullptr;
    std::string opened; // the name that the module got
    FileSet files;      // companions that are not open included
    std::vector<Dropped> dropped;
};

// Opens `name`; "-" is standard input, which is spooled to a temporary file when it cannot seek.
// Messages have been given when the result is not EXIT_FINE, and of companions that were dropped.
[[nodiscard]] ExitCode open_source(const Session &session, const std::string &name, Source *source);

// The same without a word: `why` says what went wrong, source->dropped what was dropped.
[[nodiscard]] ExitCode try_open_source(const Session &session, const std::string &name,
                                       Source *source, std::string *why);

// The highest exit code of the companions that were dropped.
[[nodiscard]] ExitCode code_of_dropped(const Source &source);

// Reads row `row`, counted from the top (scanline height - 1 - row), into source->rows. Rows in
// increasing order cost the least.
[[nodiscard]] ExitCode read_row(Source *source, int32_t row);

// The same without a word: `why` says what went wrong.
[[nodiscard]] ExitCode try_read_row(Source *source, int32_t row, std::string *why);

// Closes the picture; harmless on one that is not open.
[[nodiscard]] ExitCode close_source(Source *source);
