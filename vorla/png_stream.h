// What reading and writing PNG files have in common. libpng reports errors by jumping: every call
// that may fail is made in a step that owns nothing, and `guarded` turns the jump into a Failure.
#pragma once

#include "vorla/report.h"

#include <png.h>

#include <csetjmp>
#include <cstdio>

// A stream, and why libpng gave up on it.
struct PngStream {
    FILE *file;
    std::string name;
    char problem[160] = "";
};

inline void keep_error(png_structp png, png_const_charp message)
{
    auto *stream = static_cast<PngStream *>(png_get_error_ptr(png));
    (void)snprintf(stream->problem, sizeof stream->problem, "%s", message);
    png_longjmp(png, 1);
}

inline void drop_warning(png_structp, png_const_charp) {}

// Runs `step`, out of which libpng jumps past the destructors of its locals. Then throws a Failure
// that begins with `what`: EXIT_IO when memory was missing or the stream has failed, else `code`.
template <class Step>
void guarded(png_structp png, const std::string &what, ExitCode code, const Step &step)
{
    errno = 0;
    if (setjmp(png_jmpbuf(png)) == 0) {
        step();
        return;
    }
    const auto *stream = static_cast<const PngStream *>(png_get_error_ptr(png));
    const bool failed = errno == ENOMEM || ferror(stream->file);
    throw Failure(failed ? EXIT_IO : code, stream->name, what + ": " + stream->problem);
}
