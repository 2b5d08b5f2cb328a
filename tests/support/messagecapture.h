#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "core/message.h"

/// Collects every message while it lives, then restores the former receiver. One at a time.
class TMessageCapture {
 public:
  struct TMessage {
    std::string text;
    MsgType kind;
  };

  TMessageCapture();
  ~TMessageCapture();
  TMessageCapture(const TMessageCapture&) = delete;
  TMessageCapture& operator=(const TMessageCapture&) = delete;

  std::vector<TMessage> Messages() const;
  /// All texts, one behind the other.
  std::string Texts() const;

 private:
  TMessageSink former_;
};
