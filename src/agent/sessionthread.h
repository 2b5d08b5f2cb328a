#pragma once

#include "agent/dispatch.h"

/// Starts a session on a thread that serves nothing else meanwhile: of those whose session is over
/// the one that was busy last, else a new one. Returns 0, the socket being the session's then, or
/// the error of pthread_create. Main thread.
int StartSession(const ThreadParams& params);
