#include "client/packetfile.h"

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>

#include "client/format.h"
#include "client/vxwire.h"

std::string HexText(const std::string& bytes) {
  std::string out;
  for (size_t i = 0; i < bytes.size(); ++i) {
    char digits[4];
    snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(bytes[i]));
    out += digits;
    out += i % 16 == 15 || i + 1 == bytes.size() ? '\n' : ' ';
  }
  return out;
}

static std::string WithoutRemarks(const std::string& text) {
  std::string out;
  bool remark = false;
  for (const char c : text) {
    if (c == '#') remark = true;
    if (c == '\n') remark = false;
    if (!remark && isspace(static_cast<unsigned char>(c)) == 0) out += c;
  }
  return out;
}

std::string ReadPacketText(const std::string& content) {
  const std::string digits = WithoutRemarks(content);
  if (digits.empty() || digits.size() % 2 != 0 ||
      digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    return content;
  }
  std::string bytes;
  for (size_t i = 0; i < digits.size(); i += 2) {
    bytes += static_cast<char>(strtol(digits.substr(i, 2).c_str(), nullptr, 16));
  }
  return bytes;
}

/// Control bytes as \n, \r or \xNN, so that damage shows.
static std::string Visible(const std::string& text) {
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n' || c == '\r') {
      out += c == '\n' ? "\\n" : "\\r";
    } else if (byte < 32 || byte == 127) {
      char escape[8];
      snprintf(escape, sizeof escape, "\\x%02x", byte);
      out += escape;
    } else {
      out += c;
    }
  }
  return out;
}

std::string DescribeRequest(const std::string& packet, const std::string& password, bool& valid) {
  TRequest request;
  std::string error;
  valid = ParseRequest(packet, password, request, error);
  TKeys rows = {{"packet", std::to_string(packet.size()) + " bytes"},
                {"announced", std::to_string(request.packetLength + 4) + " bytes"},
                {"password proof", std::to_string(request.proofLength) + " bytes, " +
                                       (request.proofMatches ? "matches" : "does not match")},
                {"session key", std::to_string(request.keyLength) + " bytes"},
                {"request", std::to_string(request.textLength) + " bytes"}};
  if (valid) {
    rows.emplace_back("key", Visible(request.sessionKey));
    rows.emplace_back("text", Visible(request.text));
  }
  rows.emplace_back("verdict", valid ? "an agent with this password takes it" : error);
  return AlignColumns(rows);
}

std::string DescribeReply(const std::string& packet, const std::string& sessionKey, bool& valid) {
  const TReply reply = DecodeReply(packet, sessionKey);
  valid = reply.state == TReplyState::complete;
  TKeys rows = {{"packet", std::to_string(reply.haveBytes) + " bytes"},
                {"announced", std::to_string(reply.wantBytes) + " bytes"}};
  if (!reply.text.empty()) rows.emplace_back("text", Visible(reply.text));
  rows.emplace_back("verdict", valid ? "whole, code " + reply.code
                               : reply.state == TReplyState::incomplete
                                   ? "cut short"
                                   : "damaged, or enciphered under another key");
  return AlignColumns(rows);
}
