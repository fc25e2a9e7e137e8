// What the command line says.
#pragma once

#include "vorla/names.h"
#include "vorla/report.h"

#include <optional>

struct Session;

struct Options {
    std::string command;
    ExitCode (*run)(const Session &) = nullptr; // the command

    Names files;               // without the output of export and import
    std::string output;        // a file; a directory when there are several inputs; "-" one PNG
    std::string module;        // of --module or $VORLA_MODULE; "": look for it
    std::string channels;      // "rgb", "matte", "all" or "" (undecided)
    bool search = false;       // open names through KV_IMG_DIR
    bool quiet = false;        // neither notes nor progress; verify: failures only
    int processes = 0;         // at most so many at a time; 0: the processors
    bool json = false;         // info
    bool recursive = false;    // verify
    bool overwrite = false;    // export and import, as all below
    bool skips = false;        // passes over outputs that are there
    bool linear = false;       // the colour of the EXR file is linear, not of the sRGB curve
    bool matte_only = false;   // import: a grey picture is a matte, not a colour
    double depth_scale = 1;    // import: of depths, before they are rounded
    bool partial = false;      // export: rows that cannot be read are black, as all below
    std::string to;            // "png", "exr" or "" (the output's extension tells)
    std::string depth_picture; // "" for none
    std::string depth_samples; // of an EXR file: "float" or "uint", the default
    int size = 0;              // the picture fits into so many pixels each way; 0: as it is
    int level = -1;            // of a PNG's compression; -1: the library's own
};

// Reads the command line. Empty when help or the version was wanted, which has been printed. Throws
// a Failure, EXIT_USAGE, when the usage is wrong.
[[nodiscard]] std::optional<Options> parse_options(int argc, char **argv);
