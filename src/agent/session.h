#pragma once

#include "agent/dispatch.h"

/// Serves one connection on this thread, to its end: one request, one reply (or an upgrade's data
/// and its second reply). Closes the socket, and leaves the thread as it was.
void RunSession(const ThreadParams& params);

/// Closes and counts down the connection of the calling thread's session, if it has one. For a
/// thread that has crashed and never goes on; only calls that a signal handler may make.
void DropCrashedSession();
