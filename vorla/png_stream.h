// What reading and writing PNG files have in common. libpng reports errors by jumping: every call
// that may fail is made in a step that owns nothing, and `guarded` is where the jumps end.
#pragma once

#include "vorla/report.h"

#include <png.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <string>

// A stream, and why libpng gave up on it.
struct PngStream {
    FILE *file = nullptr;
    std::string name;
    char problem[160] = "";
};

inline void keep_error(png_structp png, png_const_charp message)
{
    PngStream *stream = static_cast<PngStream *>(png_get_error_ptr(png));
    (void)snprintf(stream->problem, sizeof stream->problem, "%s", message);
    png_longjmp(png, 1);
}

inline void drop_warning(png_structp, png_const_charp) {}

// Runs `step`; false when libpng jumped out of it, which passes by the destructors of its locals.
// Then errno tells whether memory was missing.
template <class Step>
[[nodiscard]] bool guarded(png_structp png, const Step &step)
{
    errno = 0;
    if (setjmp(png_jmpbuf(png)) != 0) {
        return false;
    }
    step();
    return true;
}

inline ExitCode fail_png(const PngStream &stream, const std::string &what, ExitCode code)
{
    const bool no_memory = errno == ENOMEM;
    complain(stream.name, what + ": " + stream.problem);
    return no_memory || ferror(stream.file) ? EXIT_IO : code;
}
