// OpenEXR files, row by row: R, G, B and A as fractions, Z as whole numbers. `linear` takes the
// colour, never the matte, through the sRGB curve. Without OpenEXR at build time both functions
// only say so.
#pragma once

#include "vorla/picture.h"

#include <cstdio>
#include <memory>

struct ExrOptions {
    bool linear = false;
    bool depth_float = false; // writing: Z as FLOAT, of 24 bits; else as UINT, which holds all
    bool matte_only = false;  // reading: Y is the matte, not a grey colour
};

#ifdef VORLA_HAVE_EXR

// Starts an OpenEXR file of HALF channels, ZIP-compressed; the stream must be able to seek. A matte
// alone is its A. The writer must be destroyed before the stream is closed. Null after a failure,
// which has been complained of.
[[nodiscard]] std::unique_ptr<RowWriter> start_exr(FILE *stream, const std::string &name,
                                                   const PictureShape &shape,
                                                   const ExrOptions &options);

// Opens an OpenEXR file, or the first part of one; its data window is the picture. Y is read as
// grey when there is no R, G or B. Fractions are rounded to bytes and clamped; Z that is not a
// whole number from 0 is rounded and clamped to 31 bits, and to PIX_DEPTH_LIMIT when it is none at
// all.
[[nodiscard]] ExitCode open_exr(FILE *stream, const std::string &name, const ExrOptions &options,
                                std::unique_ptr<RowReader> *reader);

#else

inline ExitCode refuse_exr(const std::string &name)
{
    complain(name, "cannot read or write OpenEXR: vorla was built without it");
    return EXIT_USAGE;
}

[[nodiscard]] inline std::unique_ptr<RowWriter> start_exr(FILE *, const std::string &name,
                                                          const PictureShape &, const ExrOptions &)
{
    (void)refuse_exr(name);
    return nullptr;
}

[[nodiscard]] inline ExitCode open_exr(FILE *, const std::string &name, const ExrOptions &,
                                       std::unique_ptr<RowReader> *)
{
    return refuse_exr(name);
}

#endif
