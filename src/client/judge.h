#pragma once

#include <optional>
#include <string>

#include "client/answer.h"
#include "client/commands.h"
#include "client/pluginoutput.h"

/// What check_qov is told about judging an answer.
struct TJudgeOptions {
  TRange warning = {};
  TRange critical = {};
  std::string metric = {};                   ///< label of the row's metric; empty: the first
  std::optional<std::string> expect = {};    ///< answer text or checksum
  std::optional<TPluginState> missing = {};  ///< for what does not exist or does not answer
};

/// Throws TUsageFailure when the options do not fit the row: unknown metric, thresholds without
/// a number to hold them against, an expected checksum that is no number.
void CheckJudgeOptions(const TCommand& command, const TJudgeOptions& options);

/// State, text and measures for an answer.
TJudgement JudgeAnswer(const TCommand& command, const TAnswer& answer,
                       const TJudgeOptions& options);

/// What a text-log watch came to.
struct TLogOutcome {
  int matches = 0;
  bool more = false;  ///< matching lines are left for the next run
  std::string lastLine = {};
};
/// State, text and measures for a watch.
TJudgement JudgeLog(const TLogOutcome& outcome, const TJudgeOptions& options);

/// The state that a result code stands for; "200" is OK before thresholds.
TPluginState CodeState(const std::string& code);
