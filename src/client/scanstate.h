#pragma once

#include <string>

#include "client/answer.h"
#include "client/request.h"

/// Where a text-log watch stands, as the agent gave it. Numbers stay in their decimal text.
struct TScanState {
  std::string position = "0";  ///< byte offset that the next scan starts from
  std::string size = "0";      ///< file size at the last scan, bytes; "0" starts a watch
  std::string time = "0";      ///< file time at the last scan, seconds since 1970
};

/// What a state belongs to: agent, command and parameters, on one line.
std::string WatchIdentity(const TTarget& target, const TCommand& command, TGiven given);

/// Reads the state of `watch`; a file that does not exist yet leaves `state` as it is.
/// Throws TUsageFailure when the file cannot be read, is damaged, or belongs to another watch.
void LoadScanState(const std::string& path, const std::string& watch, TScanState& state);
/// Replaces the file as a whole, by a rename; only its owner may read it (mode 0600).
/// Throws TUsageFailure with the reason; the old file then stays.
void SaveScanState(const std::string& path, const std::string& watch, const TScanState& state);

/// The state in a text log's reply. Throws TSilence when it has none.
TScanState ReadScanState(const TCommand& command, const TAnswer& answer);
/// Fills in the options that carry the state.
void PutScanState(const TScanState& state, TGiven& given);
