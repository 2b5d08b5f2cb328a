#pragma once

#include "agent/dispatch.h"

/// Thread body of one session: one request, one reply (or an upgrade's data and its second reply).
/// Takes over its ThreadParams block, made with new, and the socket in it.
void* ClientExecute(void* block);

/// Closes and counts down the connection of the calling thread's session, if it has one. For a
/// thread that has crashed and never goes on; only calls that a signal handler may make.
void DropCrashedSession();
