// The commands, one function each. Each tries all its files and returns the highest exit code.
#pragma once

#include "vorla/session.h"

[[nodiscard]] ExitCode run_info(const Session &session);
[[nodiscard]] ExitCode run_probe(const Session &session);
[[nodiscard]] ExitCode run_verify(const Session &session);
[[nodiscard]] ExitCode run_export(const Session &session);
[[nodiscard]] ExitCode run_import(const Session &session);
[[nodiscard]] ExitCode run_module(const Session &session);
