#pragma once

#include <netinet/in.h>

#include "core/wqstring.h"
#include "protocol/qov_const.h"

/// What stands in a packet around its texts, collected from its bytes as they come.
class TPacketHead {
 public:
  /// Adds the next bytes of the packet.
  void Take(const char* bytes, int count);

  int64_t Taken() const { return taken_; }  ///< bytes so far
  // Each once its bytes have come; lengths and offsets in bytes.
  int64_t Announced() const { return DecodeLength(start_, SIZELEN_PACKET); }
  const char* Marker() const { return start_ + OFFSET_AUTH - 1; }
  int64_t ProofLength() const { return DecodeLength(start_ + OFFSET_PSWD - 1, SIZELEN_PSWD); }
  int64_t KeyLength() const { return DecodeLength(keyLength_, SIZELEN_KEY); }
  int64_t TextLength() const { return DecodeLength(textLength_, SIZELEN_REQUEST); }
  int64_t KeyAt() const { return OFFSET_REQUEST - 1 + ProofLength(); }
  int64_t TextAt() const { return SIZELEN_MINIMUM + ProofLength() + KeyLength(); }
  bool HasProof() const;  ///< so much of it that it can be told from another
  /// In a time that does not depend on the proof's bytes, so that it tells nothing about them.
  bool HasProofOf(const String& password) const;

 private:
  int64_t taken_ = 0;
  char start_[OFFSET_KEY - 1] = {};
  char proof_[16] = {};
  char keyLength_[SIZELEN_KEY] = {};
  char textLength_[SIZELEN_REQUEST] = {};
};

/// A request: first the packet as it arrives, after ParseInitRequest the plain text, whose lines
/// are the command and its parameters. One connection's thread.
class VxRequest : public String {
 public:
  VxRequest() = default;
  /// Replaces the text only.
  using String::operator=;

  /// Adds bytes of the packet.
  void TakeBytes(const char* bytes, int count);
  /// Lets the bytes of an unfinished packet go once its proof is known to be wrong; more of them
  /// are only counted, and the messages of its refusal stay the same. Deliberate: a proof is looked
  /// at once, so it stays wrong when the password changes before the packet's end.
  void ForgetIfRefused(const String& password);
  bool ProofSeen() const { return proofSeen_; }
  /// 1 when the bytes so far hold a whole packet or announce one that is never accepted (a negative
  /// length, or more than kMaxPacketBytes); 0 while more must come.
  int WholePacket() const;
  /// Checks lengths, marker and password proof of the packet and deciphers it; `from` is for the
  /// debug messages, the cipher is that of the password. Returns 1 with text and session key set; 0
  /// with the packet kept as it was, if not forgotten, and an empty session key.
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
  TPacketHead Head() const;

  String sessionKey_;
  TCipher cipher_;
  TPacketHead forgotten_;  // of a packet whose bytes were let go
  bool proofSeen_ = false;
};
