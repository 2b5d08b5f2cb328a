#pragma once

#include <CLI/CLI.hpp>
#include <string>

/// Completion scripts for qovctl, made from the commands and options that `app` was built with.

std::string BashCompletion(const CLI::App& app);
std::string ZshCompletion(const CLI::App& app);
std::string FishCompletion(const CLI::App& app);
