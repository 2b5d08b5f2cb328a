#pragma once

#include <map>
#include <string>
#include <vector>

#include "protocol/reply.h"
#include "protocol/request.h"
#include "support/scopes.h"

using THandler = void (*)(const VxRequest&, QovReply&);
/// Parameters by position, counted from 1; those between are empty.
using TParams = std::map<int, std::string>;
/// Parameters written with a "," between; as "7=1" where some are left out.
TParams Params(const std::string& text);

/// Calls a command's handler as the dispatcher does and returns the reply text, the code on its
/// first line.
std::string CallHandler(THandler handler, const TParams& params);

/// A handler's parameters from the first on, and the reply as a regular expression.
using TRow = std::pair<std::vector<std::string>, std::string>;
/// Asks all at once, as many wait, with everything enabled.
void ExpectMatches(THandler handler, const std::vector<TRow>& rows);

/// Turns every flag of the shared settings on (1) or off (0) while it lives, `but` the other way;
/// restores the settings at the end.
class TEnabledTests : TScope {
 public:
  explicit TEnabledTests(int enabled = 1, int TQovSettings::*but = nullptr);
  ~TEnabledTests() {
    ChangeSettings([this](TQovSettings& settings) { settings = former_; });
  }

 private:
  const TQovSettings former_ = QovSettings;
};

/// A folder of files to check, with every check allowed.
class TCheckTest : public testing::Test {
 protected:
  /// The text with the folder, '/' at its end, in place of each "@".
  std::string In(std::string text) const;
  /// Expects that the handler replies so to each of the requests (see Params), a "|" between them.
  void Expect(THandler handler, const std::string& reply, const std::string& requests) const;

  const TEnabledTests enabled_;
  const TTempDir dir_;
};
