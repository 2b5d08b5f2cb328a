#include "config/status.h"

/// The agent under another version, with the agent's own main: what an upgrade of a test puts in
/// place.
static const char* const version = AgentStatus.AgentVersion = "1.29next";
