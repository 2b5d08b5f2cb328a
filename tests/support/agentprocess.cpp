#include "support/agentprocess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "built.h"
#include "core/owned.h"
#include "support/await.h"
#include "support/rawpeer.h"

namespace {

constexpr int kLimitMs = 20000;
constexpr char kSanitizerLog[] = "sanitizer";

int Count(const std::string& text, const std::string& part) {
  int count = 0;
  for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
  return count;
}

bool HasSwitch(const TAgentOptions& options, const char* name) {
  return std::find(options.switches.begin(), options.switches.end(), name) !=
         options.switches.end();
}

/// The running processes with `part` in their command lines.
std::vector<pid_t> ProcessesWith(const std::string& part) {
  std::vector<pid_t> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const pid_t pid = atoi(entry.path().filename().c_str());
    if (pid > 1 && ReadFile(entry.path() / "cmdline").find(part) != std::string::npos) {
      found.push_back(pid);
    }
  }
  return found;
}

}  // namespace

std::string Named(const TReply& reply, const std::string& name) {
  for (const std::string& line : reply.values) {
    if (line.rfind(name + "=", 0) == 0) return line.substr(name.size() + 1);
  }
  return "(none)";
}

TAgentProcess::TAgentProcess(TAgentOptions options) : port_(FindFreePort()) {
  WriteConfig(options.config);
  Start(options);
  if (!options.waitForListening) return;
  if (HasSwitch(options, "-i")) {
    WaitFor("Listening...");
    return;
  }
  Wait();
  Await([this] { return ReadFile("pid").find('\n') != std::string::npos; });
  pid_ = atoi(ReadFile("pid").c_str());
}

TAgentProcess::~TAgentProcess() {
  if (child_ > 0 && Wait(0) == -1) {
    kill(child_, SIGKILL);
    Wait();
  }
  // What the agent became: a detached process, or the one that an upgrade started.
  Await([this] {
    const std::vector<pid_t> left = ProcessesWith(ConfigPath());
    for (const pid_t pid : left) kill(pid, SIGKILL);
    return left.empty();
  });
  for (const auto& entry : std::filesystem::directory_iterator(folder_.Path())) {
    const std::string name = entry.path().filename();
    if (name.rfind(kSanitizerLog, 0) == 0) ADD_FAILURE() << ReadFile(name);
  }
}

void TAgentProcess::WriteConfig(const std::string& config) {
  // Put in place whole: an agent may be loading it.
  const std::string fresh = folder_.File(
      "qov.cfg.fresh", "host=127.0.0.1\nport=" + std::to_string(port_) + "\npassword=" + kPassword +
                           "\nqovpath=" + QOV_AGENT + "\ntmpdir=" + folder_.Folder("tmp") +
                           "\npidfile=" + folder_.Path("pid") +
                           "\nfilterlist=127.0.0.1\nfiltermarks=1\nlogsuccess=1\n" + config);
  std::filesystem::rename(fresh, ConfigPath());
}

void TAgentProcess::Start(const TAgentOptions& options) {
  std::vector<std::string> words = {options.program.empty() ? QOV_AGENT : options.program};
  words.insert(words.end(), options.switches.begin(), options.switches.end());
  words.push_back(ConfigPath());
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  // Reports of a sanitizer go to files, which the destructor looks for: a detached agent has no
  // console.
  const std::string log = "log_path=" + folder_.Path(kSanitizerLog);
  std::vector<std::string> added = options.environment;
  added.push_back("ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0:" + log);
  added.push_back("UBSAN_OPTIONS=print_stacktrace=1:" + log);
  added.push_back("TSAN_OPTIONS=halt_on_error=1:" + log);
  std::vector<char*> environment;
  for (std::string& variable : added) environment.push_back(variable.data());
  for (char** variable = environ; *variable != nullptr; ++variable) {
    environment.push_back(*variable);
  }
  environment.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, folder_.Path("console").c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, 0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  if (posix_spawn(&child_, arguments[0], &actions, nullptr, arguments.data(), environment.data()) !=
      0) {
    child_ = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  pid_ = child_;
}

std::string TAgentProcess::ReadFile(const std::string& name) const {
  return ::ReadFile(folder_.Path(name));
}

bool TAgentProcess::WaitFor(const std::string& text, int times, const char* file) const {
  return Await([&] { return Count(ReadFile(file), text) >= times; });
}

bool TAgentProcess::WaitForPort(bool open) const {
  return Await([&] { return TRawPeer(port_).Connected() == open; });
}

int TAgentProcess::Wait(int limitMs) {
  int status = 0;
  if (child_ <= 0) return -1;
  if (!Await([&] { return waitpid(child_, &status, WNOHANG) == child_; }, limitMs)) return -1;
  child_ = pid_ = -1;
  return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

bool TAgentProcess::FindServer(const std::string& program) {
  return Await([&] {
    for (const pid_t pid : ProcessesWith(ConfigPath())) {
      std::error_code error;
      const auto link =
          std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", error);
      if (link == program) pid_ = pid;
      if (link == program) return true;
    }
    return false;
  });
}

bool TAgentProcess::Signal(int signal) const { return pid_ > 1 && kill(pid_, signal) == 0; }

std::string TAgentProcess::Packet(const std::string& command,
                                  const std::vector<std::string>& params) {
  std::string text = command + "\n";
  for (const std::string& param : params) text += param + "\n";
  return BuildRequest(kPassword, kSessionKey, text + "\r");
}

TReply TAgentProcess::Decode(const std::string& bytes) { return DecodeReply(bytes, kSessionKey); }

TReply TAgentProcess::Ask(const std::string& command,
                          const std::vector<std::string>& params) const {
  TRawPeer peer(port_);
  if (!peer.Connected() || !peer.Send(Packet(command, params))) return {};
  return Decode(peer.ReceiveAll(kLimitMs));
}

std::string TAgentProcess::Info(const std::string& name) const {
  return Named(Ask("GetInfo"), name);
}

int TAgentProcess::CountDescriptors() const {
  std::error_code error;
  const std::filesystem::directory_iterator list("/proc/" + std::to_string(pid_) + "/fd", error);
  return static_cast<int>(std::distance(begin(list), end(list)));
}

long TAgentProcess::CpuMs() const {
  const std::string stat = ::ReadFile("/proc/" + std::to_string(pid_) + "/stat");
  const size_t end = stat.rfind(')');
  unsigned long user = 0;
  unsigned long system = 0;
  if (end == std::string::npos ||
      sscanf(stat.c_str() + end + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &user,
             &system) != 2) {
    return -1;
  }
  return static_cast<long>((user + system) * 1000 /
                           static_cast<unsigned long>(sysconf(_SC_CLK_TCK)));
}
