#include "checks/log/textlog.h"

#include <utility>

#include "checks/files/pathmacros.h"
#include "checks/gate.h"
#include "checks/log/logscan.h"
#include "config/settings.h"

namespace {

constexpr const char* kMissing = "File does not exist";

/// What a check works with, and what the next one starts from.
struct TLogCheck {
  String path;
  TLineFilters filters;
  bool scanAll;
  TLogState state;

  bool DecodeState(const VxRequest& params, int first) {
    return qovDecodeInt64(params.GetValue(first), &state.position) != 0 &&
           qovDecodeInt64(params.GetValue(first + 1), &state.size) != 0 &&
           qovDecodeInt64(params.GetValue(first + 2), &state.time) != 0;
  }
  void AddFilter(TTextLogFilter filter) {
    filters.emplace_back(std::move(filter.text), filter.isExpression == 1, filter.caseSensitive,
                         filter.wholeWord);
  }
  bool Scan(TLogMatch& match, String& error) {
    return ScanLog(path.CStr(), filters, scanAll, state, match, error);
  }
};

/// Scans, and unless all was scanned looks ahead for another match.
/// @return the filter that matched, 0 for none, -1 with the reply refused
int Answer(TLogCheck& check, QovReply& reply) {
  TLogMatch match;
  String error;
  if (!check.Scan(match, error)) {
    Refuse(reply, error.CStr());
    return -1;
  }
  reply.SetResult(kResultDone);
  reply.AddIntParam(match.offset);
  reply.AddStringParam(match.line, 1);
  const TLogState state = check.state;
  TLogMatch next;
  const bool morePending = !check.scanAll && check.Scan(next, error) && next.offset != 0;
  reply.AddBoolParam(morePending);
  // A match that waits is left to the next check, which starts from the state before it.
  if (morePending) check.state = state;
  reply.AddIntParam(check.state.position);
  reply.AddIntParam(check.state.size);
  reply.AddIntParam(check.state.time);
  reply.AddIntParam(check.state.currentSize);
  return match.filter;
}

}  // namespace

void DecodeFilter(const VxRequest& params, TTextLogFilter& filter, int first) {
  filter.text = qovDecodeStrings(params.GetText(first));
  filter.isExpression = Asked(params, first + 1);
  filter.caseSensitive = Asked(params, first + 2);
  filter.wholeWord = Asked(params, first + 3);
}

double CheckFileForExpression(const char* path, const String& expr, double& position, double& size,
                              double& time, int isExpression, int scanAll, int caseSensitive,
                              int wholeWord, String& lastLine, String& error, double& currentSize) {
  const TTextLogFilter filter{expr, isExpression != 0, caseSensitive, wholeWord};
  int firstFilterMatched;
  return CheckFileForExpression2(path, position, size, time, filter, TTextLogFilter(), 0, scanAll,
                                 firstFilterMatched, lastLine, error, currentSize);
}

double CheckFileForExpression2(const char* path, double& position, double& size, double& time,
                               const TTextLogFilter& filter1, const TTextLogFilter& filter2,
                               int useFilter2, int scanAll, int& firstFilterMatched,
                               String& lastLine, String& error, double& currentSize) {
  TLogCheck check{path, {}, scanAll != 0, {position, size, time, 0}};
  check.AddFilter(filter1);
  if (useFilter2 != 0) check.AddFilter(filter2);
  TLogMatch match;
  const bool scanned = check.Scan(match, error);
  position = check.state.position;
  size = check.state.size;
  time = check.state.time;
  currentSize = check.state.currentSize;
  lastLine = std::move(match.line);
  if (match.filter != 0) firstFilterMatched = match.filter == 1;
  return scanned ? match.offset : -1;
}

void ProcessTest_TextLog(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->textlog, reply)) return;
  TLogCheck check{GetFirstMatchedFile(params.GetValue(1)), {}, Asked(params, 7), {}};
  if (check.path.Empty()) return Refuse(reply, kMissing);
  if (!check.DecodeState(params, 3)) return RefuseParameter(reply);
  TTextLogFilter filter{qovDecodeStrings(params.GetText(2)), Asked(params, 6), Asked(params, 8),
                        Asked(params, 9)};
  check.AddFilter(std::move(filter));
  Answer(check, reply);
}

void ProcessTest_TextLog2(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->textlog, reply)) return;
  TLogCheck check{{}, {}, Asked(params, 5), {}};
  if (!check.DecodeState(params, 2)) return RefuseParameter(reply);
  TTextLogFilter filter1, filter2;
  DecodeFilter(params, filter1, 6);
  check.AddFilter(std::move(filter1));
  const bool useFilter2 = Asked(params, 10);
  if (useFilter2) {
    DecodeFilter(params, filter2, 11);
    check.AddFilter(std::move(filter2));
  }
  // Deliberate: the flag's place depends on whether the second filter is there.
  check.path = GetFirstMatchedFile(GetPath(params, 1, useFilter2 ? 20 : 16));
  if (check.path.Empty()) return Refuse(reply, kMissing);
  const int filter = Answer(check, reply);
  if (filter < 0) return;
  reply.AddBoolParam(filter == 1);
  reply.AddStringParam(check.path, 1);
}
