#pragma once

#include <netinet/in.h>

#include "core/wqstring.h"
#include "protocol/qov_const.h"

/// A request: first the packet as it arrives, after ParseInitRequest the plain text, whose lines
/// are the command and its parameters. One connection's thread.
class VxRequest : public String {
 public:
  VxRequest() = default;
  /// Replaces the text only.
  using String::operator=;

  /// 1 when the bytes so far hold a whole packet or announce one that is never accepted (a negative
  /// length, or more than kMaxPacketBytes); 0 while more must come.
  int WholePacket() const;
  /// Checks lengths, marker and password proof of the packet and deciphers it; `from` is for the
  /// debug messages, the cipher is that of the password. Returns 1 with text and session key set; 0
  /// with the packet kept as it was and an empty session key.
  /// The agent itself calls the form with the cipher.
  int ParseInitRequest(const String& password, in_addr from);
  int ParseInitRequest(const String& password, const TCipherKey& passwordCipher, in_addr from);
  String GetSessionKey() const { return sessionKey_; }
  /// The session key, prepared, for the reply; null before a successful parse.
  const TCipher& SessionCipher() const { return cipher_; }

  /// Number of line feeds in the text. Not called by the agent itself.
  int GetParamsCount() const;
  /// Line n, counted from 1 (n <= 1 gives line 1), "" behind the end; trim not 0 trims it.
  String GetParam(int n, int trim) const;
  /// For paths, names, hosts, numbers: line n without blanks and control characters (ASCII) at its
  /// ends; bytes from 0x80 on stay.
  String GetValue(int n) const;
  /// For search texts, command lines, scripts, data, messages: line n less one carriage return at
  /// its end.
  String GetText(int n) const;
  /// Value of the first line "name = value" with exactly this name, trimmed; "" for none. Not
  /// called by the agent itself.
  String GetNamedParam(const char* name) const;

 private:
  String sessionKey_;
  TCipher cipher_;
};
