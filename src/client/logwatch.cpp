#include "client/logwatch.h"

#include <chrono>

#include "client/values.h"

TAnswer WatchOnce(const TTarget& target, const TCommand& command, TGiven given,
                  const std::string& stateFile) {
  const std::string watch = WatchIdentity(target, command, given);
  TScanState state;
  LoadScanState(stateFile, watch, state);
  PutScanState(state, given);
  const TAnswer answer = Ask(target, command.agent, BuildParams(command, given));
  if (answer.Done()) SaveScanState(stateFile, watch, ReadScanState(command, answer));
  return answer;
}

TLogOutcome CountMatches(const TTarget& target, const TCommand& command, TGiven given,
                         const std::string& stateFile, TAnswer& answer) {
  const std::string watch = WatchIdentity(target, command, given);
  TScanState state;
  LoadScanState(stateFile, watch, state);
  const auto enough =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(target.timeoutMs / 2);
  TLogOutcome outcome;
  do {
    PutScanState(state, given);
    answer = Ask(target, command.agent, BuildParams(command, given));
    if (!answer.Done()) return outcome;
    const std::vector<TValue> values = ReadValues(command, answer);
    if (values[kTextLogMatch].number > 0) {
      ++outcome.matches;
      outcome.lastLine = values[kTextLogLine].text;
    }
    outcome.more = values[kTextLogMore].text == "1";
    state = ReadScanState(command, answer);
  } while (outcome.more && std::chrono::steady_clock::now() < enough);
  SaveScanState(stateFile, watch, state);
  return outcome;
}
