// The commands, one function each. Each tries all its files and returns the highest exit code.
#pragma once

#include "vorla/formats.h"
#include "vorla/names.h"
#include "vorla/session.h"

#include <string>

[[nodiscard]] ExitCode run_info(const Session &session, const Names &files, bool json);
[[nodiscard]] ExitCode run_probe(const Session &session, const Names &files);
[[nodiscard]] ExitCode run_verify(const Session &session, const Names &files, bool recursive);
[[nodiscard]] ExitCode run_module(const Session &session);

struct ExportOptions : WriteOptions {
    Names inputs;
    std::string output;        // a file; a directory when there are several inputs; "-" one PNG
    std::string to;            // "png", "exr" or "" (the output's extension tells)
    std::string depth_picture; // "" for none
    bool overwrite = false;
};

[[nodiscard]] ExitCode run_export(const Session &session, const ExportOptions &options);

struct ImportOptions : ReadOptions {
    std::string input;
    std::string output; // a plain_name
    bool overwrite = false;
};

[[nodiscard]] ExitCode run_import(const Session &session, const ImportOptions &options);
