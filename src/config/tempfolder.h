#pragma once

#include <optional>

#include "core/wqstring.h"

/// The folder for temporary files: the one last settled, else TMPDIR, else TMP, as it stands. "" is
/// a folder too (the root, as names are put behind it with a '/'). Nothing when there is none of
/// these. Any thread.
std::optional<String> TempFolder();
/// Settles it for this process and its children, as their TMPDIR. Any thread.
void SettleTempFolder(const String& folder);
/// From here on the environment itself stays as it is, as threads read it. Before the first thread.
void FreezeEnvironment();
