#include "client/vxwire.h"

#include <errno.h>
#include <nettle/cfb.h>
#include <nettle/md5.h>
#include <nettle/sha1.h>
#include <nettle/twofish.h>
#include <string.h>
#include <sys/random.h>

#include <algorithm>

namespace {

constexpr std::string_view kMarker = "\x03\x12";
constexpr size_t kFixedBytes = 14;  // everything but proof, key and text
constexpr size_t kLengthBytes = 4;

const uint8_t* Bytes(std::string_view s) { return reinterpret_cast<const uint8_t*>(s.data()); }

/// Twofish-192 under the SHA-1 of the key text and four zero bytes, 8-bit cipher feedback, started
/// from the encryption of sixteen 0xFF bytes.
std::string Cipher(std::string_view data, std::string_view keyText, bool encipher) {
  uint8_t key[TWOFISH192_KEY_SIZE] = {};
  sha1_ctx hash;
  sha1_init(&hash);
  sha1_update(&hash, keyText.size(), Bytes(keyText));
  sha1_digest(&hash, SHA1_DIGEST_SIZE, key);

  struct CFB8_CTX(twofish_ctx, TWOFISH_BLOCK_SIZE) state;
  twofish192_set_key(&state.ctx, key);
  memset(state.iv, 0xFF, sizeof state.iv);
  twofish_encrypt(&state.ctx, sizeof state.iv, state.iv, state.iv);

  std::string result(data.size(), '\0');
  uint8_t* out = reinterpret_cast<uint8_t*>(result.data());
  if (encipher) {
    CFB8_ENCRYPT(&state, twofish_encrypt, data.size(), out, Bytes(data));
  } else {
    // Deciphering runs the block cipher forwards, too.
    CFB8_DECRYPT(&state, twofish_encrypt, data.size(), out, Bytes(data));
  }
  return result;
}

std::string Proof(std::string_view password) { return password.empty() ? "" : Md5(password); }

std::string LittleEndian(size_t value, int width) {
  std::string result;
  for (int i = 0; i < width; ++i) result += static_cast<char>(value >> (8 * i));
  return result;
}

uint32_t ReadUnsigned(std::string_view bytes, size_t at, size_t width) {
  uint32_t value = 0;
  for (size_t i = width; i-- > 0;) value = (value << 8) | static_cast<uint8_t>(bytes[at + i]);
  return value;
}

int64_t ReadSigned(std::string_view bytes, size_t at) {
  return static_cast<int32_t>(ReadUnsigned(bytes, at, 4));
}

bool IsReplyText(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789";
  return text.size() >= 5 && text.find_first_not_of(kDigits) == 3 && text[3] == '\n' &&
         text.back() == '\r';
}

std::vector<std::string> SplitLines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const size_t feed = text.find('\n');
    lines.emplace_back(text.substr(0, feed));
    text.remove_prefix(feed == text.npos ? text.size() : feed + 1);
  }
  return lines;
}

/// Reads the lengths; returns what is wrong, "" for nothing.
std::string ReadLengths(std::string_view bytes, TRequest& out) {
  if (bytes.size() < kFixedBytes) {
    return "shorter than the " + std::to_string(kFixedBytes) + " bytes of the fixed fields";
  }
  const int64_t room = static_cast<int64_t>(bytes.size() - kFixedBytes);
  out.packetLength = ReadSigned(bytes, 0);
  if (bytes.size() > kMaxRequestBytes) return "longer than the 16 MiB that an agent takes";
  if (out.packetLength + 4 != static_cast<int64_t>(bytes.size())) {
    return "packet length field says " + std::to_string(out.packetLength + 4) +
           " bytes, there are " + std::to_string(bytes.size());
  }
  out.proofLength = ReadUnsigned(bytes, 6, 2);
  if (out.proofLength > room) return "password proof reaches past the end";
  out.keyLength = ReadUnsigned(bytes, 8 + static_cast<size_t>(out.proofLength), 2);
  if (out.proofLength + out.keyLength > room) return "session key reaches past the end";
  out.textLength = ReadSigned(bytes, 10 + static_cast<size_t>(out.proofLength + out.keyLength));
  if (out.textLength < 0) return "request length is negative";
  if (out.proofLength + out.keyLength + out.textLength > room) {
    return "request text reaches past the end";
  }
  return bytes.substr(4, 2) == kMarker ? "" : "protocol marker is not 03 12";
}

}  // namespace

std::string Md5(std::string_view bytes) {
  std::string digest(MD5_DIGEST_SIZE, '\0');
  md5_ctx hash;
  md5_init(&hash);
  md5_update(&hash, bytes.size(), Bytes(bytes));
  md5_digest(&hash, digest.size(), reinterpret_cast<uint8_t*>(digest.data()));
  return digest;
}

std::string BuildRequest(std::string_view password, std::string_view sessionKey,
                         std::string_view text) {
  const std::string proof = Proof(password);
  std::string body(kMarker);
  body += LittleEndian(proof.size(), 2) + proof;
  body += LittleEndian(sessionKey.size(), 2) + Cipher(sessionKey, password, true);
  body += LittleEndian(text.size(), 4) + Cipher(text, sessionKey, true);
  return LittleEndian(body.size(), 4) + body;
}

std::string BuildReply(std::string_view sessionKey, std::string_view text) {
  if (text.empty()) return "";
  return LittleEndian(text.size(), 4) + Cipher(text, sessionKey, true);
}

std::string MakeSessionKey() {
  uint8_t random[16];
  ssize_t got;
  do {
    got = getrandom(random, sizeof random, 0);
  } while (got == -1 && errno == EINTR);
  if (got != static_cast<ssize_t>(sizeof random)) return "";
  std::string key;
  for (const uint8_t byte : random) {
    key += "0123456789abcdef"[byte >> 4];
    key += "0123456789abcdef"[byte & 15];
  }
  return key;
}

bool ParseRequest(std::string_view bytes, std::string_view password, TRequest& out,
                  std::string& error) {
  out = TRequest();
  error = ReadLengths(bytes, out);
  if (!error.empty()) return false;
  const size_t proofLength = static_cast<size_t>(out.proofLength);
  const size_t keyLength = static_cast<size_t>(out.keyLength);
  out.proofMatches = bytes.substr(8, proofLength) == Proof(password);
  if (!out.proofMatches) {
    error = "password proof does not match";
    return false;
  }
  out.sessionKey = Cipher(bytes.substr(10 + proofLength, keyLength), password, false);
  out.text = Cipher(
      bytes.substr(kFixedBytes + proofLength + keyLength, static_cast<size_t>(out.textLength)),
      out.sessionKey, false);
  return true;
}

int64_t ReplyBytes(std::string_view bytes) {
  if (bytes.size() < kLengthBytes) return kLengthBytes;
  const int64_t announced = ReadSigned(bytes, 0);
  return announced <= 0 || announced > kMaxReplyBytes ? -1 : announced + int64_t{kLengthBytes};
}

TReply DecodeReply(std::string_view bytes, std::string_view sessionKey) {
  TReply reply;
  reply.haveBytes = bytes.size();
  const int64_t want = ReplyBytes(bytes);
  if (want < 0) return reply;
  reply.wantBytes = static_cast<size_t>(want);
  if (bytes.size() < reply.wantBytes) {
    reply.state = TReplyState::incomplete;
    return reply;
  }
  if (bytes.size() > reply.wantBytes) return reply;
  reply.text = Cipher(bytes.substr(kLengthBytes), sessionKey, false);
  if (!IsReplyText(reply.text)) return reply;
  reply.state = TReplyState::complete;
  reply.code = reply.text.substr(0, 3);
  reply.values = SplitLines(std::string_view(reply.text).substr(4, reply.text.size() - 5));
  return reply;
}

std::string EncodeText(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (const char c : text) {
    if (c == '\n') {
      result += "%0A";
    } else if (c == '\r') {
      result += "%0D";
    } else {
      result += c;
    }
  }
  return result;
}

std::string DecodeText(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::string_view head = text.substr(0, 3);
    const bool escape = head == "%0A" || head == "%0D";
    result += !escape ? text[0] : head == "%0A" ? '\n' : '\r';
    text.remove_prefix(escape ? 3 : 1);
  }
  return result;
}
