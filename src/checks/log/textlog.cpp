#include "checks/log/textlog.h"

#include <utility>

#include "checks/files/pathmacros.h"
#include "checks/gate.h"
#include "checks/log/logscan.h"
#include "config/settings.h"

namespace {

constexpr const char* kMissing = "File does not exist";

TLineFilter Prepared(TTextLogFilter filter) {
  return TLineFilter(std::move(filter.text), filter.isExpression == 1, filter.caseSensitive,
                     filter.wholeWord);
}

/// What a check works with and what the next one starts from.
struct TLogCheck {
  String path;
  TLineFilters filters;
  int scanAll = 0;
  bool reportsFilter = false;  // "TEST-TextLog2"
  TLogState state = {};
  int firstFilterMatched = 0;
  TLogMatch match;
  String error;

  bool DecodeState(const VxRequest& params, int first) {
    return qovDecodeInt64(params.GetValue(first), &state.position) != 0 &&
           qovDecodeInt64(params.GetValue(first + 1), &state.size) != 0 &&
           qovDecodeInt64(params.GetValue(first + 2), &state.time) != 0;
  }

  bool Scan() {
    const bool scanned = ScanLog(path.CStr(), filters, scanAll != 0, state, match, error);
    if (match.filter != 0) firstFilterMatched = match.filter == 1;
    return scanned;
  }

  void AddState(QovReply& reply) const {
    reply.AddIntParam(state.position);
    reply.AddIntParam(state.size);
    reply.AddIntParam(state.time);
    reply.AddIntParam(state.currentSize);
    if (!reportsFilter) return;
    reply.AddBoolParam(firstFilterMatched);
    reply.AddStringParam(path, 1);
  }
};

/// Scans, and unless all was scanned looks ahead for another match.
void Answer(TLogCheck& check, QovReply& reply) {
  if (!check.Scan()) return Refuse(reply, check.error.CStr());
  reply.SetResult(kResultDone);
  reply.AddIntParam(check.match.offset);
  reply.AddStringParam(check.match.line, 1);
  const TLogState state = check.state;
  const int firstFilterMatched = check.firstFilterMatched;
  const bool morePending = check.scanAll == 0 && check.Scan() && check.match.offset != 0;
  reply.AddBoolParam(morePending);
  if (morePending) {
    // The waiting match is left to the next check, which starts from the state before it.
    check.state = state;
    check.firstFilterMatched = firstFilterMatched;
  }
  check.AddState(reply);
}

}  // namespace

void DecodeFilter(const VxRequest& params, TTextLogFilter& filter, int first) {
  filter.text = qovDecodeStrings(params.GetText(first));
  filter.isExpression = qovDecodeBool(params.GetValue(first + 1));
  filter.caseSensitive = qovDecodeBool(params.GetValue(first + 2));
  filter.wholeWord = qovDecodeBool(params.GetValue(first + 3));
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
  TLineFilters filters;
  filters.push_back(Prepared(filter1));
  if (useFilter2 != 0) filters.push_back(Prepared(filter2));
  TLogState state{position, size, time, 0};
  TLogMatch match;
  const bool scanned = ScanLog(path, filters, scanAll != 0, state, match, error);
  position = state.position;
  size = state.size;
  time = state.time;
  currentSize = state.currentSize;
  lastLine = std::move(match.line);
  if (match.filter != 0) firstFilterMatched = match.filter == 1;
  return scanned ? match.offset : -1;
}

void ProcessTest_TextLog(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->textlog, reply)) return;
  TLogCheck check;
  check.path = GetFirstMatchedFile(params.GetValue(1));
  if (check.path.Empty()) return Refuse(reply, kMissing);
  if (!check.DecodeState(params, 3)) return RefuseParameter(reply);
  TTextLogFilter filter;
  filter.text = qovDecodeStrings(params.GetText(2));
  filter.isExpression = qovDecodeBool(params.GetValue(6));
  check.scanAll = qovDecodeBool(params.GetValue(7));
  filter.caseSensitive = qovDecodeBool(params.GetValue(8));
  filter.wholeWord = qovDecodeBool(params.GetValue(9));
  check.filters.push_back(Prepared(std::move(filter)));
  Answer(check, reply);
}

void ProcessTest_TextLog2(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->textlog, reply)) return;
  TLogCheck check;
  check.reportsFilter = true;
  if (!check.DecodeState(params, 2)) return RefuseParameter(reply);
  check.scanAll = qovDecodeBool(params.GetValue(5));
  const bool useFilter2 = qovDecodeBool(params.GetValue(10)) != 0;
  for (const int first : {6, 11}) {
    if (first == 11 && !useFilter2) break;
    TTextLogFilter filter;
    DecodeFilter(params, filter, first);
    check.filters.push_back(Prepared(std::move(filter)));
  }
  String mask = params.GetValue(1);
  // Deliberate: the flag's place depends on whether the second filter is there.
  if (qovDecodeBool(params.GetValue(useFilter2 ? 20 : 16)) != 0) {
    mask = GetFileUsingSpecialMacros(mask);
  }
  check.path = GetFirstMatchedFile(mask);
  if (check.path.Empty()) return Refuse(reply, kMissing);
  Answer(check, reply);
}
