#pragma once

#include "core/wqstring.h"
#include "protocol/reply.h"
#include "protocol/request.h"

/// "TEST-TextLog": watches a growing text file for lines with a text. The agent keeps no state:
/// position, size and time come with each request, and the reply holds the next ones.
/// Parameters: 1 file name or mask; 2 text or expression; 3 to 5 position, size and time;
/// 6 2 is an expression; 7 scan to the end; 8 case-sensitive; 9 whole words.
/// "200" offset of the match (0: none), its line (1,024 bytes of it), whether another match waits,
/// position, size, time, current size; "301" when the file is missing or unreadable; "501" when
/// one of 3 to 5 is no number.
void ProcessTest_TextLog(const VxRequest& params, QovReply& reply);

/// "TEST-TextLog2": the same with a second filter and path macros.
/// Parameters: 1 file name or mask; 2 to 4 position, size and time; 5 scan to the end; 6 to 9
/// first filter; 10 use the second filter; 11 to 14 second filter; then (16 without a second
/// filter, 20 with it) expand path macros.
/// As above, and behind the current size: whether the first filter matched, the file examined.
void ProcessTest_TextLog2(const VxRequest& params, QovReply& reply);

/// A line filter as it comes with a request.
struct TTextLogFilter {
  String text;           ///< text or expression
  int isExpression = 0;  ///< 1: an expression, anything else: plain text
  int caseSensitive = 0;
  int wholeWord = 0;
};

/// Fills a filter from four parameters: text, is an expression, case-sensitive, whole words.
void DecodeFilter(const VxRequest& params, TTextLogFilter& filter, int first);

/// Scans a log from `position` on for a line that matches; see ScanLog (checks/log/logscan.h).
/// Neither form is called by the agent itself, whose checks prepare their filters once.
/// @param position, size, time  the state, in and out
/// @param scanAll      not 0: read to the end and report the last matching line
/// @param lastLine     out: the first 1,024 bytes of the matching line; "" when nothing matched
/// @param currentSize  out: file size at the start of the scan or at its last match, bytes
/// @return offset of the line plus the match value (1-based position of the text in the line, 1
///         for an expression); 0 when nothing matched; -1 with `error` set
double CheckFileForExpression(const char* path, const String& expr, double& position, double& size,
                              double& time, int isExpression, int scanAll, int caseSensitive,
                              int wholeWord, String& lastLine, String& error, double& currentSize);
/// The same with two filters. firstFilterMatched is set to 1 or 0 on a match only.
double CheckFileForExpression2(const char* path, double& position, double& size, double& time,
                               const TTextLogFilter& filter1, const TTextLogFilter& filter2,
                               int useFilter2, int scanAll, int& firstFilterMatched,
                               String& lastLine, String& error, double& currentSize);
