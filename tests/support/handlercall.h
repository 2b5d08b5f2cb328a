#pragma once

#include <map>
#include <string>

#include "protocol/reply.h"
#include "protocol/request.h"

/// Parameters by position, counted from 1; those between are empty.
using TParams = std::map<int, std::string>;

/// Calls a command's handler as the dispatcher does and returns the reply text, the code on its
/// first line.
std::string CallHandler(void (*handler)(const VxRequest&, QovReply&), const TParams& params);

/// Turns every test and action on (1) or off (0) in the shared settings while it lives, then off.
class TEnabledTests {
 public:
  explicit TEnabledTests(int enabled = 1);
  ~TEnabledTests();
  TEnabledTests(const TEnabledTests&) = delete;
  TEnabledTests& operator=(const TEnabledTests&) = delete;
};
