#include "checks/log/textlog.h"

#include <utility>

#include "checks/files/pathmacros.h"
#include "checks/gate.h"
#include "checks/log/logscan.h"
#include "config/settings.h"

namespace {

constexpr int kMaxReportedLine = 1024;

TLineFilter Prepared(const TTextLogFilter& filter) {
  return TLineFilter(filter.text, filter.isExpression == 1, filter.caseSensitive, filter.wholeWord);
}

/// What a check works with and what the next one starts from.
struct TLogCheck {
  String path;
  double position = 0;
  double size = 0;
  double time = 0;
  double currentSize = 0;
  TTextLogFilter filter1;
  TTextLogFilter filter2;
  int useFilter2 = 0;
  int scanAll = 0;
  int firstFilterMatched = 0;
  bool reportsFilter = false;  // "TEST-TextLog2"

  bool DecodeState(const VxRequest& params, int first) {
    return qovDecodeInt64(params.GetParam(first, 1), &position) != 0 &&
           qovDecodeInt64(params.GetParam(first + 1, 1), &size) != 0 &&
           qovDecodeInt64(params.GetParam(first + 2, 1), &time) != 0;
  }

  double Scan(String& line, String& error) {
    return CheckFileForExpression2(path.CStr(), position, size, time, filter1, filter2, useFilter2,
                                   scanAll, firstFilterMatched, line, error, currentSize);
  }

  void AddState(QovReply& reply) const {
    reply.AddIntParam(position);
    reply.AddIntParam(size);
    reply.AddIntParam(time);
    reply.AddIntParam(currentSize);
    if (!reportsFilter) return;
    reply.AddBoolParam(firstFilterMatched);
    reply.AddStringParam(path, 1);
  }
};

/// Scans, and unless all was scanned looks ahead for another match.
void Answer(TLogCheck& check, QovReply& reply) {
  String line;
  String error;
  const double match = check.Scan(line, error);
  if (match == -1) {
    reply.SetResult(kResultCannot) += error;
    return;
  }
  reply.SetResult(kResultDone);
  reply.AddIntParam(match);
  reply.AddStringParam(line.Copy(1, kMaxReportedLine), 1);
  line = String();  // lines may be huge
  const TLogCheck afterFirst = check;
  const double next = check.scanAll != 0 ? 0 : check.Scan(line, error);
  const bool morePending = next != 0 && next != -1;
  reply.AddBoolParam(morePending);
  // The waiting match is left to the next check, which starts from the state before it.
  (morePending ? afterFirst : check).AddState(reply);
}

void ReportMissing(QovReply& reply) { reply.SetResult(kResultCannot) += "File does not exist"; }

}  // namespace

void DecodeFilter(const VxRequest& params, TTextLogFilter& filter, int first) {
  filter.text = qovDecodeStrings(params.GetParam(first, 1));
  filter.isExpression = qovDecodeBool(params.GetParam(first + 1, 1));
  filter.caseSensitive = qovDecodeBool(params.GetParam(first + 2, 1));
  filter.wholeWord = qovDecodeBool(params.GetParam(first + 3, 1));
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
  TLineFilters filters(Prepared(filter1));
  if (useFilter2 != 0) filters.SetSecond(Prepared(filter2));
  TLogState state{position, size, time, 0};
  TLogMatch match;
  const int scanned = ScanLog(path, filters, scanAll != 0, state, match, error);
  position = state.position;
  size = state.size;
  time = state.time;
  currentSize = state.currentSize;
  lastLine = std::move(match.line);
  if (match.filter != 0) firstFilterMatched = match.filter == 1;
  return scanned != 0 ? match.offset : -1;
}

void ProcessTest_TextLog(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->textlog, reply)) return;
  TLogCheck check;
  check.path = GetFirstMatchedFile(params.GetParam(1, 1));
  if (check.path.Empty()) return ReportMissing(reply);
  check.filter1.text = qovDecodeStrings(params.GetParam(2, 1));
  if (!check.DecodeState(params, 3)) return RefuseParameter(reply);
  check.filter1.isExpression = qovDecodeBool(params.GetParam(6, 1));
  check.scanAll = qovDecodeBool(params.GetParam(7, 1));
  check.filter1.caseSensitive = qovDecodeBool(params.GetParam(8, 1));
  check.filter1.wholeWord = qovDecodeBool(params.GetParam(9, 1));
  Answer(check, reply);
}

void ProcessTest_TextLog2(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->textlog, reply)) return;
  TLogCheck check;
  check.reportsFilter = true;
  if (!check.DecodeState(params, 2)) return RefuseParameter(reply);
  check.scanAll = qovDecodeBool(params.GetParam(5, 1));
  DecodeFilter(params, check.filter1, 6);
  check.useFilter2 = qovDecodeBool(params.GetParam(10, 1));
  if (check.useFilter2 != 0) DecodeFilter(params, check.filter2, 11);
  check.path = params.GetParam(1, 1);
  // Deliberate: the flag's place depends on whether the second filter is there.
  const int macroFlag = (check.useFilter2 + 4) * 4;
  if (qovDecodeBool(params.GetParam(macroFlag, 1)) != 0) {
    check.path = GetFileUsingSpecialMacros(check.path);
  }
  check.path = GetFirstMatchedFile(check.path);
  if (check.path.Empty()) return ReportMissing(reply);
  Answer(check, reply);
}
