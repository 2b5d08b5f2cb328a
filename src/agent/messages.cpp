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
std::mutex showmutex;

/// The settings are those in force, never the record that a request has pinned: a reload must not
/// split one request over two logs.
void __attribute__((format(printf, 1, 0)))
WriteMessage(const char* format, in_addr address, MsgType kind, int formatted, va_list args) {
  const TSettingsView settings = SettingsInForce();
  if (kind == msgDebug && settings->debug == 0) return;
  const String* log = nullptr;
  if (kind == msgOk && settings->logsuccess != 0) log = &settings->oklogfile;
  if (kind == msgFail && settings->logfails != 0) log = &settings->badlogfile;
  if (settings->interactive == 0 && settings->verbose == 0 && log == nullptr) return;

  const std::lock_guard<std::mutex> lock(showmutex);
  const time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  char date[23], clock[23];
  strftime(date, sizeof date, "%m/%d/%Y", &local);
  strftime(clock, sizeof clock, "%H:%M:%S", &local);
  char sender[24] = "qov\t";
  if (address.s_addr != 0) inet_ntoa_safe(address, sender, sizeof sender);
  char formed[kLineSize];
  if (formatted != 0) vsnprintf(formed, sizeof formed, format, args);
  const char* text = formatted != 0 ? formed : format;

  char line[kLineSize];  // what does not fit is cut
  if (settings->interactive == 1 &&
      snprintf(line, sizeof line, "[qov][%s]\t %s\t %s", clock, sender, text) > 0) {
    printf("%s", line);
  }
  if (snprintf(line, sizeof line, "[%s %s]\t %s\t %s", date, clock, sender, text) < 0) return;
  if (log != nullptr) writelog(*log, line);
  if (settings->verbose != 0) writelog(settings->verboselogfile, line);
}

}  // namespace

void InstallMessages() { SetMessageSink(&WriteMessage); }

void writelog(String fileName, const char* text) {
  if (fileName.Empty() || text == nullptr) return;
  if (ExtractFilePath(fileName).Empty()) {
    // The folder part keeps its own '/', so the name gets two of them; they name the same file.
    const String folder = ExtractFilePath(SettingsInForce()->configfile);
    if (!folder.Empty()) fileName = folder + "/" + fileName;
  }
  const TFd log(open(fileName.CStr(),
                     O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666));
  if (!log) return;
  // A full disk or pipe loses the line, never the session.
  if (write(log.Get(), text, strlen(text)) < 0) return;
}
