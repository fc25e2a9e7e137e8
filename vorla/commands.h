// The commands, one function each. Each tries all its files and returns the highest exit code.
#pragma once

#include "vorla/source.h"

#include <string>
#include <vector>

using Names = std::vector<std::string>;

[[nodiscard]] ExitCode run_info(const Session &session, const Names &files, bool json);
[[nodiscard]] ExitCode run_probe(const Session &session, const Names &files);
[[nodiscard]] ExitCode run_verify(const Session &session, const Names &files, bool recursive);
[[nodiscard]] ExitCode run_module(const Session &session);
