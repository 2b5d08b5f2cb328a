#include "checks/process/proctests.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "checks/gate.h"
#include "checks/process/runner.h"
#include "checks/process/tempfile.h"
#include "config/settings.h"
#include "fs/files.h"

namespace {

constexpr int kCpuScriptLimitMs = 8000;
constexpr mode_t kScriptMode = 0775;
constexpr int kLineSize = 512;  ///< with terminator; a longer line is read as several
constexpr char kResultMark[] = "scriptres:";
constexpr int kMaxTextBytes = 64 * 1024 * 1024;  ///< output beyond this is left out of a reply

/// False, with the reply filled, when the script that is to answer is not there.
bool ScriptUsable(const String& script, const char* what, QovReply& reply) {
  const bool named = !script.Empty();
  if (named && FileExists(script.CStr())) return true;
  Refuse(reply, what);
  reply += named ? " script doesn't exist" : " script is not speified";
  return false;
}

/// Makes "tmp<kind>qov-<thread>.txt" for the output of a script. It is there before the script
/// starts, so that no symbolic link can take its place.
bool MakeOutput(char kind, TTempFile& output, QovReply& reply) {
  char name[48];
  snprintf(name, sizeof(name), "tmp%cqov-%ld.txt", kind, static_cast<long>(GetUniqueThreadID()));
  const bool named = output.Choose(name);
  if (named && output.Create()) return true;
  Refuse(reply, named ? "Cannot get script results" : "cannot get temp file");
  return false;
}

/// Runs a command through the shell with all its output in one file; null, with the reply filled,
/// when there is nothing to read.
TFile RunForOutput(String command, const TTempFile& output, QovReply& reply) {
  for (const char* redirection : {" 1>", " 2>", " 3>"}) {
    (command += redirection) += output.Path();
  }
  if (!RunShell(command.CStr())) {
    Refuse(reply, "Cannot execute script");
    return nullptr;
  }
  TFile file = output.OpenText();
  if (!file) Refuse(reply, "Cannot get script results");
  return file;
}

/// Runs a command without a shell, all its output in one file.
/// Deliberate: the input is "/dev/null", as a script that reads finds nothing. The output file in
/// its place would let it read what it has printed itself, and go on for ever.
int RunIntoFile(const String& command, const TTempFile& output, int timeoutMs, String& err) {
  int exitCode;
  return SystemEx2(command.CStr(), nullptr, nullptr, output.Path(), output.Path(), timeoutMs,
                   exitCode, err);
}

/// Zero or less is no delay.
void Delay(int microseconds) {
  std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

/// Appends a line and CR LF, growing in large steps: a text may have a million lines.
void AppendLine(String& text, const char* line, int length) {
  if (text.Length() >= kMaxTextBytes) return;
  const int needed = text.Length() + length + 2;
  if (needed > text.Capacity()) text.Reserve(needed * 2);
  text.AddData(line, length);
  text += "\r\n";
}

String JoinLines(FILE* file) {
  String text;
  char line[kLineSize];
  while (fgets(line, kLineSize, file) != nullptr) {
    const auto length = static_cast<int>(strcspn(line, "\n"));
    if (length != 0) AppendLine(text, line, length);
  }
  return text;
}

bool IsResult(const String& line) {
  constexpr int kLength = sizeof(kResultMark) - 1;
  return memposi(line.CStr(), std::min(line.Length(), kLength), kResultMark, kLength) == 1;
}

struct TScriptOutput {
  String result;
  String text;
};

/// Picks the result line and the first `wantedLines` lines of a script's output.
TScriptOutput ReadScriptOutput(FILE* file, int wantedLines) {
  TScriptOutput output;
  char buffer[kLineSize];
  while (fgets(buffer, kLineSize, file) != nullptr) {
    String line = buffer;
    if (line.Trim().Empty()) continue;
    if (wantedLines > 0) {
      AppendLine(output.text, line.CStr(), line.Length());
      --wantedLines;
    }
    if (!IsResult(output.result)) output.result = line;
    if (wantedLines <= 0 && IsResult(output.result)) break;
  }
  return output;
}

/// Writes the script to a new file; false, with the reply filled, when that fails.
bool MakeScript(const String& text, TTempFile& script, QovReply& reply) {
  const char* failure = nullptr;
  TFd fd;
  if (!script.Choose(nullptr)) {
    failure = "Cannot get temp file";
  } else if (fd = script.Create(); !fd) {
    failure = "Cannot create temp file";
  } else if (write(fd.Get(), text.CStr(), static_cast<size_t>(text.Length())) != text.Length()) {
    failure = "cannot create temp file";
  } else if (fchmod(fd.Get(), kScriptMode) != 0) {
    failure = "Cannot set exec flag for script";
  }
  if (failure != nullptr) Refuse(reply, failure);
  return failure == nullptr;
}

}  // namespace

void ProcessTest_Process(const VxRequest& params, QovReply& reply) {
  const TSettingsView settings = CurrentSettings();
  if (!TestAllowed(settings->process, reply)) return;
  if (!ScriptUsable(settings->proccntscript, "ProcCnt", reply)) return;
  const String name = params.GetValue(2);
  if (name.Empty()) {
    reply.SetResult(kResultWrongParameter) += "Name of the process is not specified";
    return;
  }
  TTempFile output;
  if (!MakeOutput('P', output, reply)) return;
  const TFile file = RunForOutput(settings->proccntscript + " " + name, output, reply);
  if (!file) return;
  long long count;  // too large a number is read as the largest
  // NOLINTNEXTLINE(cert-err34-c)
  if (fscanf(file.get(), "%lld", &count) != 1) return Refuse(reply, "Script error");
  reply.SetResult(kResultDone).AddIntParam(Saturated(count));
}

void ProcessTest_CPU(const VxRequest&, QovReply& reply) {
  const TSettingsView settings = CurrentSettings();
  if (!TestAllowed(settings->cpuusage, reply)) return;
  if (!ScriptUsable(settings->cpuusagescript, "CPUUsage", reply)) return;
  TTempFile output;
  if (!MakeOutput('C', output, reply)) return;
  Delay(settings->delayforscripts);
  String err;
  if (RunIntoFile(settings->cpuusagescript, output, kCpuScriptLimitMs, err) == 0) {
    return Refuse(reply, "Cannot execute script");
  }
  const TFile file = output.OpenText();
  if (!file) return Refuse(reply, "Cannot get script results");
  float usage;
  // NOLINTNEXTLINE(cert-err34-c)
  if (fscanf(file.get(), "%f", &usage) != 1) return Refuse(reply, "Script error");
  reply.SetResult(kResultDone).AddRealParam(usage);
}

void ProcessTest_External(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->external, reply)) return;
  const String command = params.GetText(1);
  int timeoutMs;
  if (qovDecodeInt(params.GetValue(4), &timeoutMs) == 0) return RefuseParameter(reply);
  if (params.GetValue(1).Empty()) {
    reply.SetResult(kResultWrongParameter);  // Deliberate: the code alone, as servers know it.
    return;
  }
  int exitCode;
  String err;
  if (SystemEx(command.CStr(), nullptr, timeoutMs, exitCode, err) == 0) {
    return Refuse(reply, err.CStr());
  }
  reply.SetResult(kResultDone).AddIntParam(exitCode);
}

void ProcessInfo_ProcessesList(const VxRequest&, QovReply& reply) {
  const TSettingsView settings = CurrentSettings();
  if (!TestAllowed(settings->process, reply)) return;
  if (!ScriptUsable(settings->proclistscript, "ProcList", reply)) return;
  TTempFile output;
  if (!MakeOutput('P', output, reply)) return;
  const TFile file = RunForOutput(settings->proclistscript, output, reply);
  if (!file) return;
  reply.SetResult(kResultDone).AddStringParam(JoinLines(file.get()), 1);
}

void ProcessTest_ShellScript(const VxRequest& params, QovReply& reply) {
  const TSettingsView settings = CurrentSettings();
  if (!TestAllowed(settings->shellscript, reply)) return;
  const String text = qovDecodeStrings(params.GetText(2)).ReplaceAll("\r\n", "\n", 1);
  const String arguments = qovDecodeStrings(params.GetText(3));
  const int timeoutMs = Saturated(1000LL * qovDecodeInt(params.GetValue(4)));
  const int wantedLines = qovDecodeInt(params.GetValue(5));
  TTempFile script;
  if (!MakeScript(text, script, reply)) return;
  TTempFile output;
  if (!output.Choose(nullptr)) return Refuse(reply, "Cannot get temp file");
  if (!output.Create()) return Refuse(reply, "Cannot get script results");
  const String command = params.GetText(1)
                             .ReplaceAll("%script%", script.Path(), 0)
                             .ReplaceAll("%params%", arguments.CStr(), 0);
  Delay(settings->delayforscripts);
  String err;
  if (RunIntoFile(command, output, timeoutMs, err) == 0) {
    Refuse(reply, "Script execution error: ");
    reply += err;
    return;
  }
  const TFile file = output.OpenText();
  if (!file) return Refuse(reply, "Cannot get script results");
  const TScriptOutput result = ReadScriptOutput(file.get(), wantedLines);
  reply.SetResult(kResultDone).AddStringParam(result.result, 1);
  reply.AddStringParam(result.text, 1);
}
