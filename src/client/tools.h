#pragma once

#include "client/controlrun.h"

/// Subcommands of qovctl that are more than one row of the command table. Each adds itself to `app`
/// and, when the arguments name it, sets the run's action. `run` must outlive the parse.

void AddPing(CLI::App& app, TControlRun& run);
void AddWait(CLI::App& app, TControlRun& run);
void AddAll(CLI::App& app, TControlRun& run);
void AddSet(CLI::App& app, TControlRun& run);
void AddUpgrade(CLI::App& app, TControlRun& run);
void AddPacket(CLI::App& app, TControlRun& run);
void AddCheckConfig(CLI::App& app, TControlRun& run);
void AddShowConfig(CLI::App& app, TControlRun& run);
void AddCompletion(CLI::App& app, TControlRun& run);
