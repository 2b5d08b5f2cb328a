#pragma once

#include <vector>

#include "core/wqstring.h"

/// One thing that an administrator should know about a configuration file.
struct TConfigFinding {
  int line;     ///< from 1; 0 when it concerns no line of the file
  bool error;   ///< the agent would not start with this file; else a warning
  String text;  ///< without a line end
};

/// Loads the file as the agent would and reports the loader's own texts, then what the loader
/// lets pass. Sorted by line. The machine is looked at too: the folders and helper scripts that
/// the file names, and whether its port can be opened. As root, the file's owner is taken for the
/// agent's user. Prints nothing. One thread at a time: like every load, it settles the folder for
/// temporary files.
std::vector<TConfigFinding> CheckConfig(const char* path);
