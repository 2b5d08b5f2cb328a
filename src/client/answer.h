#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/connection.h"
#include "client/failure.h"
#include "client/target.h"

/// A reply as it came: the code and the lines behind it, still in their wire forms.
struct TAnswer {
  std::string code;
  std::vector<std::string> lines = {};
  double elapsedMs = 0;  ///< from the connect to the reply's last byte

  bool Done() const { return code == "200"; }
  /// Line n, counted from 1; empty when there are fewer.
  const std::string& Line(size_t n) const;
  /// All lines, joined by a line feed.
  std::string Text() const;
};

/// The request text of a command and its parameter lines.
std::string MakeRequestText(const std::string& command, const std::vector<std::string>& params);
/// Reads the bytes of a reply packet. Throws TSilence when they are no reply under this key.
TAnswer ReadAnswer(std::string_view packet, std::string_view sessionKey);

/// One request to the agent. Throws TSilence when there is no readable reply.
TAnswer Ask(const TTarget& target, const std::string& command,
            const std::vector<std::string>& params);

/// Throws TSilence with the reason when an exchange did not go through.
void RequireDone(const TTarget& target, const TExchange& exchange);
/// A fresh session key. Throws TSilence when the kernel gives none.
std::string NewSessionKey();

/// What a result code says, in a few words.
const char* CodeMeaning(const std::string& code);
/// qovctl's exit status for a result code.
TExitStatus CodeExitStatus(const std::string& code);
