#include "checks/process/proctests.h"

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "checks/gate.h"
#include "checks/process/runner.h"
#include "checks/process/tempfile.h"
#include "config/settings.h"
#include "fs/files.h"

namespace {

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

/// The output of a script that has run; null, with the reply filled, when it never began any.
TFile OpenOutput(const TTempFile& output, QovReply& reply) {
  TFile file = output.OpenText();
  if (!file) Refuse(reply, "Cannot get script results");
  return file;
}

/// Runs a command through the shell with all its output in one file, and opens that.
TFile RunForOutput(String command, const TTempFile& output, QovReply& reply) {
  for (const char* stream : {" 1>", " 2>", " 3>"}) (command += stream) += output.Path();
  if (RunShell(command.CStr())) return OpenOutput(output, reply);
  Refuse(reply, "Cannot execute script");
  return nullptr;
}

/// Runs a command without a shell, after the delay for scripts, all its output in one file.
/// Deliberate: the input is "/dev/null", as a script that reads finds nothing. The output file in
/// its place would let it read what it has printed itself, and go on for ever.
int RunIntoFile(const String& command, const TTempFile& output, int timeoutMs, String& err) {
  std::this_thread::sleep_for(std::chrono::microseconds(CurrentSettings()->delayforscripts));
  int exitCode;
  return SystemEx2(command.CStr(), nullptr, nullptr, output.Path(), output.Path(), timeoutMs,
                   exitCode, err);
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
  return strncasecmp(line.CStr(), kResultMark, sizeof(kResultMark) - 1) == 0;
}

struct TScriptOutput {
  String result, text;
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

/// Writes the script to a new file. Null, or what went wrong.
const char* MakeScript(const String& text, TTempFile& script) {
  if (!script.Choose(nullptr)) return "Cannot get temp file";
  const TFd fd = script.Create();
  if (!fd) return "Cannot create temp file";
  const ssize_t written = write(fd.Get(), text.CStr(), static_cast<size_t>(text.Length()));
  if (written != text.Length()) return "cannot create temp file";
  return fchmod(fd.Get(), 0775) == 0 ? nullptr : "Cannot set exec flag for script";
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
  String err;
  if (RunIntoFile(settings->cpuusagescript, output, 8000, err) == 0) {
    return Refuse(reply, "Cannot execute script");
  }
  const TFile file = OpenOutput(output, reply);
  if (!file) return;
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
  if (!TestAllowed(CurrentSettings()->shellscript, reply)) return;
  const String text = qovDecodeStrings(params.GetText(2)).ReplaceAll("\r\n", "\n", 1);
  const String arguments = qovDecodeStrings(params.GetText(3));
  const int timeoutMs = Saturated(1000LL * qovDecodeInt(params.GetValue(4)));
  const int wantedLines = qovDecodeInt(params.GetValue(5));
  TTempFile script, output;
  if (const char* failure = MakeScript(text, script)) return Refuse(reply, failure);
  if (!output.Choose(nullptr)) return Refuse(reply, "Cannot get temp file");
  if (!output.Create()) return Refuse(reply, "Cannot get script results");
  const String command = params.GetText(1)
                             .ReplaceAll("%script%", script.Path(), 0)
                             .ReplaceAll("%params%", arguments.CStr(), 0);
  String err;
  if (RunIntoFile(command, output, timeoutMs, err) == 0) {
    return Refuse(reply, (String("Script execution error: ") + err).CStr());
  }
  const TFile file = OpenOutput(output, reply);
  if (!file) return;
  const TScriptOutput result = ReadScriptOutput(file.get(), wantedLines);
  reply.SetResult(kResultDone).AddStringParam(result.result, 1);
  reply.AddStringParam(result.text, 1);
}
