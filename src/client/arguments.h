#pragma once

#include <CLI/CLI.hpp>

#include "client/request.h"
#include "client/target.h"

/// Adds -H, -p, --password-file and --config, filled into `target`, which must outlive the parse.
void AddTargetOptions(CLI::App& app, TTargetOptions& target);
/// Adds a subcommand with the options and arguments of a row; parent options stay valid behind it.
CLI::App* AddCommand(CLI::App& app, const TCommand& command);
/// What was given for a row's options and arguments; call it after the parse.
TGiven CollectGiven(const CLI::App& subcommand, const TCommand& command);
