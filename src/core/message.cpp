#include "core/message.h"

#include <new>
#include <utility>

static TMessageSink messageSink = nullptr;

TMessageSink SetMessageSink(TMessageSink sink) { return std::exchange(messageSink, sink); }

void showmessage(const char* format, in_addr address, MsgType kind, int formatted, ...) {
  if (messageSink == nullptr) return;
  va_list args;
  va_start(args, formatted);
  try {
    messageSink(format, address, kind, formatted, args);
  } catch (const std::bad_alloc&) {
    // The message is lost; destructors report, too.
  }
  va_end(args);
}
