#pragma once

#include "agent/dispatch.h"

/// Starts a session on a thread that serves nothing else meanwhile: of those whose session is over
/// the one that was busy last, else a new one. True when the socket is the session's
/// then; false when no thread could be made. Main thread.
bool StartSession(const ThreadParams& params);
