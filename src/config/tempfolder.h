#pragma once

#include <optional>

#include "core/wqstring.h"

/// The folder for temporary files: the one last settled, else TMPDIR, else TMP, as it stands. "" is
/// a folder too (the root, as names are put behind it with a '/'). Nothing when there is none of
/// these. Any thread.
std::optional<String> TempFolder();
/// Settles it for the process; nothing: the environment's again. Children get it as their TMPDIR;
/// the environment itself stays as it is, as threads read it. Any thread.
void SettleTempFolder(const std::optional<String>& folder);
