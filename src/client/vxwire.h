#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>
#include <vector>

/// The client's own packet code: it shares nothing with the agent's but the cipher library, so that
/// each side checks the other. All functions may be called from any thread.
///
/// Request packet, integers little-endian:
///   L:4 | marker 03 12 | P:2 | proof[P] | K:2 | key[K] | R:4 | text[R]
/// Reply packet: N:4 | text[N].

/// An agent refuses longer packets, bytes.
inline constexpr size_t kMaxRequestBytes = size_t{16} * 1024 * 1024;
/// Replies that announce more are taken for damaged, bytes.
inline constexpr int64_t kMaxReplyBytes = int64_t{256} * 1024 * 1024;

/// The packet for a request text, which must carry its own line feeds and final carriage return.
/// @param sessionKey  at most 65,535 bytes; the reply comes enciphered under it
std::string BuildRequest(std::string_view password, std::string_view sessionKey,
                         std::string_view text);
/// The packet of a reply; "" for an empty text.
std::string BuildReply(std::string_view sessionKey, std::string_view text);

/// The 16 bytes of an MD5 digest.
std::string Md5(std::string_view bytes);
/// A fresh session key: 32 hexadecimal digits of 128 random bits; "" when the kernel gives none.
std::string MakeSessionKey();

/// A request packet taken apart. Lengths are as announced, the rest is empty where it could not be
/// read.
struct TRequest {
  int64_t packetLength = 0;  ///< L: counts the bytes behind itself
  int64_t proofLength = 0;
  int64_t keyLength = 0;
  int64_t textLength = 0;
  bool proofMatches = false;  ///< the proof is that of the password given
  std::string sessionKey;
  std::string text;
};

/// Reads a request packet.
/// @param out    out: as far as the packet could be read
/// @param error  out: what is wrong with the packet, else ""
/// @return true when the agent would accept it
bool ParseRequest(std::string_view bytes, std::string_view password, TRequest& out,
                  std::string& error);

enum class TReplyState {
  complete,
  incomplete,  ///< fewer bytes than announced
  damaged,     ///< impossible length, bytes behind the end, or a text that is no reply (wrong key)
};

struct TReply {
  TReplyState state = TReplyState::damaged;
  size_t haveBytes = 0;
  /// Bytes of the whole packet; 4 while the length has not arrived; 0 for an impossible length.
  size_t wantBytes = 0;
  std::string text;                 ///< deciphered, as sent; also set for a text that is no reply
  std::string code;                 ///< three digits
  std::vector<std::string> values;  ///< the lines behind the code, still escaped
};

/// Bytes of the whole reply packet that begins with `bytes`: 4 while fewer than 4 are there, -1
/// when it announces an impossible length.
int64_t ReplyBytes(std::string_view bytes);
/// Deciphers and splits a reply packet.
TReply DecodeReply(std::string_view bytes, std::string_view sessionKey);

/// Line feeds and carriage returns of a value as "%0A" and "%0D", and back.
std::string EncodeText(std::string_view text);
std::string DecodeText(std::string_view text);
