#pragma once

#include <optional>

#include "core/wqstring.h"

/// The folder for temporary files, as the environment names it: TMPDIR, else TMP. Any thread.

/// The folder last settled, else TMPDIR, else TMP, as it stands: "" is a folder too (the root, as
/// names are put behind it with a '/'). Nothing when neither variable is set.
std::optional<String> TempFolder();
/// Makes `folder` the TMPDIR of this process. Once the environment is frozen only TempFolder tells
/// of it, and who starts a child hands it on.
void SettleTempFolder(const String& folder);
/// From here on the environment is left alone: threads may read it.
void FreezeEnvironment();
