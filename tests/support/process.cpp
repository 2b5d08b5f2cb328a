#include "support/process.h"

#include <spawn.h>
#include <sys/wait.h>

#include "built.h"

namespace fs = std::filesystem;

TProcess::TProcess(const std::string& line) {
  const std::string all = "exec </dev/null; " + line;
  const char* const words[] = {"sh", "-c", all.c_str(), nullptr};
  if (posix_spawn(&pid_, "/bin/sh", nullptr, nullptr, const_cast<char**>(words), environ) != 0) {
    pid_ = -1;
  }
}

TProcess::~TProcess() {
  Signal(SIGKILL);
  Wait();
}

int TProcess::Wait(int limitMs) {
  int status = 0;
  const auto ended = [&] { return waitpid(pid_, &status, WNOHANG) == pid_; };
  if (pid_ > 0 && Await(ended, limitMs)) {
    pid_ = -1;
    status_ = WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
  }
  return status_;
}

std::string Named(const TReply& reply, const std::string& name) {
  for (const std::string& line : reply.values) {
    if (line.rfind(name + "=", 0) == 0) return line.substr(name.size() + 1);
  }
  return "(none)";
}

std::string TAgentProcess::Prepare(const TAgentOptions& options) const {
  folder.File("qov", "#!/bin/sh\nexec " QOV_AGENT " \"$@\"\n");
  fs::permissions(program, fs::perms::owner_all);
  WriteConfig(options.config);
  // Reports of a sanitizer go to files, which the destructor looks for: a detached agent has no
  // console.
  const std::string log = ":log_path=" + folder.Path("sanitizer");
  return "exec >" + folder.Path("console") +
         " 2>&1 env ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0" + log +
         " UBSAN_OPTIONS=print_stacktrace=1" + log + " TSAN_OPTIONS=halt_on_error=1" + log +
         (options.faults.empty() ? " " : " LD_PRELOAD=" QOV_FAULTS " " + options.faults) +
         " " QOV_AGENT " " + options.switches + " " + configPath;
}

TAgentProcess::TAgentProcess(const TAgentOptions& options) : process_(Prepare(options)) {
  Await([&] {
    return process_.Wait(0) != -1 || ReadFile("console").find("Listening...") != std::string::npos;
  });
  pid_ = process_.Pid();
  if (process_.Wait(0) != 0) return;
  for (const pid_t pid : Running()) pid_ = pid;  // detached
  if (pid_ != -1) Await([&] { return Ask("GetInfo").code == "200"; });
}

TAgentProcess::~TAgentProcess() {
  // Those that it became, too: a detached process, or the one that an upgrade started.
  Await([this] {
    const std::vector<pid_t> left = Running();
    for (const pid_t pid : left) kill(pid, SIGKILL);
    return left.empty();
  });
  for (const auto& entry : fs::directory_iterator(folder.Path())) {
    const std::string name = entry.path().filename();
    if (name.rfind("sanitizer", 0) == 0) ADD_FAILURE() << ReadFile(name);
  }
}

std::vector<pid_t> TAgentProcess::Running() const {
  std::vector<pid_t> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const pid_t pid = atoi(entry.path().filename().c_str());
    const std::string words = pid > 1 ? ::ReadFile(entry.path() / "cmdline") : "";
    if (words.find(configPath) != std::string::npos) found.push_back(pid);
  }
  return found;
}

void TAgentProcess::WriteConfig(const std::string& config) const {
  // Put in place whole: an agent may be loading it.
  const std::string fresh = folder.File(
      "qov.cfg.fresh", "host=127.0.0.1\nport=" + std::to_string(port) + "\npassword=" + kPassword +
                           "\nqovpath=" + program + "\ntmpdir=" + folder.Folder("tmp") +
                           "\npidfile=" + folder.Path("pid") +
                           "\nfilterlist=127.0.0.1\nfiltermarks=1\nlogsuccess=1\n" + config);
  fs::rename(fresh, configPath);
}

bool TAgentProcess::WaitFor(const std::string& text, int times, const char* file) const {
  return Await([&] {
    const std::string content = ReadFile(file);
    int count = 0;
    for (size_t at = 0; (at = content.find(text, at)) != std::string::npos; ++at) ++count;
    return count >= times;
  });
}

int TAgentProcess::Wait(int limitMs) {
  const int status = process_.Wait(limitMs);
  if (status != -1) pid_ = -1;
  return status;
}

TReply TAgentProcess::Ask(const std::string& command,
                          const std::vector<std::string>& params) const {
  TRawPeer peer(port);
  return peer.Ask(command, params) ? peer.Reply() : TReply();
}

int TAgentProcess::CountDescriptors() const {
  std::error_code error;
  const fs::directory_iterator list("/proc/" + std::to_string(pid_) + "/fd", error);
  return static_cast<int>(std::distance(begin(list), end(list)));
}
