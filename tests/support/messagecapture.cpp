#include "support/messagecapture.h"

#include <stdio.h>

namespace {

std::mutex captureMutex;
std::vector<TMessageCapture::TMessage> captured;

void __attribute__((format(printf, 1, 0)))
Capture(const char* format, in_addr, MsgType kind, int formatted, va_list args) {
  char text[1024];
  if (formatted != 0) {
    vsnprintf(text, sizeof text, format, args);
  } else {
    snprintf(text, sizeof text, "%s", format);
  }
  const std::lock_guard<std::mutex> lock(captureMutex);
  captured.push_back({text, kind});
}

}  // namespace

TMessageCapture::TMessageCapture() {
  captured.clear();
  former_ = SetMessageSink(&Capture);
}

TMessageCapture::~TMessageCapture() { SetMessageSink(former_); }

std::vector<TMessageCapture::TMessage> TMessageCapture::Messages() const {
  const std::lock_guard<std::mutex> lock(captureMutex);
  return captured;
}

std::string TMessageCapture::Texts() const {
  std::string all;
  for (const TMessage& message : Messages()) all += message.text;
  return all;
}
