#pragma once

#include <time.h>

#include "core/wqstring.h"
#include "protocol/qov_const.h"

/// First line of every reply.
inline constexpr char kResultDone[] = "200";            ///< test passed or operation done
inline constexpr char kResultFailed[] = "300";          ///< test performed, condition bad
inline constexpr char kResultCannot[] = "301";          ///< test could not be performed
inline constexpr char kResultBusy[] = "302";            ///< another session is upgrading
inline constexpr char kResultUnknown[] = "500";         ///< unknown or not applicable
inline constexpr char kResultWrongParameter[] = "501";  ///< wrong or missing parameters
inline constexpr char kResultIncomplete[] = "502";      ///< end of transmission missed
inline constexpr char kResultRefused[] = "600";         ///< refused by the settings

/// A reply under construction: the result code line, then value lines. One connection's thread.
class QovReply : public String {
 public:
  QovReply() = default;
  /// Replaces the text only.
  using String::operator=;

  /// Starts with `text` and a line feed (null: empty). The packet's key is empty without this call.
  void InitPacket(const char* text, TCipher key);
  /// The same for a key not yet prepared. Not called by the agent itself.
  void InitPacket(const char* text, const String& key) {
    InitPacket(text, std::make_shared<const TCipherKey>(key));
  }
  /// Replaces everything by the code and a line feed; returns the reply for a text to be appended.
  QovReply& SetResult(const char* code);
  /// Ends an unfinished line.
  void CommandSeparatorCheck();

  /// Each adds one value line; encode not 0 escapes line breaks.
  void AddStringParam(const String& s, int encode);
  void AddStringParam(const char* s, int encode) { AddStringParam(String(s), encode); }
  void AddBoolParam(int b) { AddLine(b != 0 ? "1" : "0", 1); }
  void AddIntParam(int v) { AddVarParams("%d", v); }
  /// "%6.0f", right-aligned, and "%6.4f", cut after 34 characters.
  void AddIntParam(double v);
  void AddRealParam(double v);
  /// DDMMYYYYhhmmss, local time; a time without a calendar date is written as an all-zero record.
  void AddTimeParam(const time_t& t);
  void AddTimeParam(const struct tm& t);
  /// A formatted line, unescaped and cut after 2,047 characters; none when it has more than 2,048.
  void AddVarParams(const char* format, ...) __attribute__((format(printf, 2, 3)));

  /// Turns the text into the packet to send; nothing may be added afterwards.
  void FinalizePacket();

 private:
  void AddLine(const char* bytes, int count);

  TCipher key_;
};
