#pragma once

#include <netinet/in.h>
#include <stdarg.h>

/// Decides where a message goes.
enum MsgType {
  msgOk = 0,     ///< successful events
  msgFail = 1,   ///< errors and rejections
  msgDebug = 2,  ///< detail, dropped unless the run asks for it
  msgInfo = 3,   ///< state changes
};

/// For a message of the agent itself.
inline constexpr in_addr kNoPeer{};

/// Receives every message, on the thread that reported it.
using TMessageSink = void (*)(const char* format, in_addr address, MsgType kind, int formatted,
                              va_list args);

/// Installs the receiver (null drops everything) and returns the former one.
/// Not synchronised: call it before the first session thread starts.
TMessageSink SetMessageSink(TMessageSink sink);

/// Reports one message about a peer, with its own trailing "\n". Any thread.
/// @param address  the peer, kNoPeer for none
/// @param format  printf format when `formatted` is not 0, else plain text
void showmessage(const char* format, in_addr address, MsgType kind, int formatted, ...)
    __attribute__((format(printf, 1, 5)));
