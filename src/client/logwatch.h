#pragma once

#include "client/judge.h"
#include "client/scanstate.h"

/// One step of a text-log watch whose state is kept in a file: reads it, asks, writes the new one.
/// Throws TUsageFailure for the file and TSilence for the agent.
TAnswer WatchOnce(const TTarget& target, const TCommand& command, TGiven given,
                  const std::string& stateFile);

/// Asks until no match is waiting, for at most half of the target's time-out, and counts. The state
/// is written once, at the end, so that a run that fails loses no match.
/// @param answer  out: the last answer; when it is not "200" the outcome and the file stay as they
///                were
TLogOutcome CountMatches(const TTarget& target, const TCommand& command, TGiven given,
                         const std::string& stateFile, TAnswer& answer);
