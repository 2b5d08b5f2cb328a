#include "agent/messages.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <mutex>

#include "config/settings.h"
#include "core/iplib.h"
#include "core/message.h"
#include "core/owned.h"
#include "fs/paths.h"

namespace {

constexpr int kLineSize = 512;
constexpr int kStampSize = 23;

std::mutex showmutex;

/// True when some target takes messages of this kind.
bool IsWanted(const TQovSettings& settings, MsgType kind) {
  return settings.interactive != 0 || settings.verbose != 0 ||
         (kind == msgOk && settings.logsuccess != 0) || (kind == msgFail && settings.logfails != 0);
}

/// What one message is made of.
struct TMessageParts {
  char stamp[kStampSize];  // date and time
  char clock[kStampSize];
  char sender[24];
  char text[kLineSize];
};

void __attribute__((format(printf, 2, 0)))
FillParts(TMessageParts& parts, const char* format, in_addr address, int formatted, va_list args) {
  const time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  strftime(parts.stamp, sizeof parts.stamp, "%m/%d/%Y %H:%M:%S", &local);
  strftime(parts.clock, sizeof parts.clock, "%H:%M:%S", &local);
  if (address.s_addr != 0) {
    inet_ntoa_safe(address, parts.sender, sizeof parts.sender);
  } else {
    strcpy(parts.sender, "qov\t");
  }
  if (formatted != 0) {
    vsnprintf(parts.text, sizeof parts.text, format, args);
  } else {
    snprintf(parts.text, sizeof parts.text, "%s", format);
  }
}

/// One console or log line, cut at what a line may hold.
String MakeLine(const char* start, const char* stamp, const TMessageParts& parts) {
  String line(kLineSize - 1);
  for (const char* piece : {start, stamp, "]\t ", parts.sender, "\t ", parts.text}) line += piece;
  return line;
}

void __attribute__((format(printf, 1, 0)))
WriteMessage(const char* format, in_addr address, MsgType kind, int formatted, va_list args) {
  const TSettingsView settings = CurrentSettings();
  if (kind == msgDebug && settings->debug == 0) return;
  if (!IsWanted(*settings, kind)) return;

  const std::lock_guard<std::mutex> lock(showmutex);
  TMessageParts parts;
  FillParts(parts, format, address, formatted, args);
  if (settings->interactive == 1) {
    printf("%s", MakeLine("[qov][", parts.clock, parts).CStr());
  }
  const String line = MakeLine("[", parts.stamp, parts);
  if (kind == msgOk && settings->logsuccess != 0) writelog(settings->oklogfile, line.CStr());
  if (kind == msgFail && settings->logfails != 0) writelog(settings->badlogfile, line.CStr());
  if (settings->verbose != 0) writelog(settings->verboselogfile, line.CStr());
}

}  // namespace

void InstallMessages() { SetMessageSink(&WriteMessage); }

void writelog(String fileName, const char* text) {
  if (fileName.Empty() || text == nullptr) return;
  if (ExtractFilePath(fileName).Empty()) {
    // The folder part keeps its own '/', so the name gets two of them; they name the same file.
    const String folder = ExtractFilePath(CurrentSettings()->configfile);
    if (!folder.Empty()) fileName = folder + "/" + fileName;
  }
  const TFd log(open(fileName.CStr(),
                     O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666));
  if (!log) return;
  // A full disk or pipe loses the line, never the session.
  if (write(log.Get(), text, strlen(text)) < 0) return;
}
