#pragma once

#include "core/wqstring.h"

/// Makes the agent's console and log files the receiver of all messages. Call it before the first
/// session thread starts.
void InstallMessages();

/// Appends `text` to one log file in one write; a name without a folder lies beside the
/// configuration file. Never blocks: a file that cannot be opened or written is skipped silently.
/// Called under the messages' lock only.
void writelog(String fileName, const char* text);
