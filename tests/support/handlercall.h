#pragma once

#include <map>
#include <string>
#include <vector>

#include "config/settings.h"
#include "protocol/reply.h"
#include "protocol/request.h"

using THandler = void (*)(const VxRequest&, QovReply&);
/// Parameters by position, counted from 1; those between are empty.
using TParams = std::map<int, std::string>;

/// Calls a command's handler as the dispatcher does and returns the reply text, the code on its
/// first line.
std::string CallHandler(THandler handler, const TParams& params);

struct TCall {
  TParams params;
  std::string reply;
};
/// Expects that the handler replies to each call as it says.
void ExpectReplies(THandler handler, const std::vector<TCall>& calls);

/// Turns every test and action on (1) or off (0) in the shared settings while it lives, then off;
/// `but` the other way.
class TEnabledTests {
 public:
  explicit TEnabledTests(int enabled = 1, int TQovSettings::*but = nullptr);
  ~TEnabledTests();
  TEnabledTests(const TEnabledTests&) = delete;
  TEnabledTests& operator=(const TEnabledTests&) = delete;
};
