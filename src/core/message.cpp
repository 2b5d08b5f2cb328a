#include "core/message.h"

#include <utility>

static TMessageSink messageSink = nullptr;

TMessageSink SetMessageSink(TMessageSink sink) { return std::exchange(messageSink, sink); }

void showmessage(const char* format, in_addr address, MsgType kind, int formatted, ...) {
  if (messageSink == nullptr) return;
  va_list args;
  va_start(args, formatted);
  messageSink(format, address, kind, formatted, args);
  va_end(args);
}
