#pragma once

#include <stdio.h>

/// Creates the pid file and locks it whole for as long as it stays open.
/// Deliberate: it is truncated before the lock is tried.
/// @return the open file; null (reported, not fatal) when it cannot be created or locked
FILE* createpidfile();
/// Closes the file and removes the one that the `pidfile` setting names; null does nothing.
void closepidfile(FILE* file);
