#include "support/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include "built.h"

namespace fs = std::filesystem;

/// The texts as system calls take them.
static std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

TProcess::TProcess(std::vector<std::string> words, std::vector<std::string> environment,
                   const std::string& output) {
  for (char** own = environ; *own != nullptr; ++own) environment.push_back(*own);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                   0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  if (posix_spawn(&pid_, words[0].c_str(), &actions, nullptr, Pointers(words).data(),
                  Pointers(environment).data()) != 0) {
    pid_ = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
}

TProcess::~TProcess() {
  Signal(SIGKILL);
  Wait();
}

int TProcess::Wait(int limitMs) {
  int status = 0;
  const auto ended = [&] { return waitpid(pid_, &status, WNOHANG) == pid_; };
  if (pid_ <= 0 || !Await(ended, limitMs)) return -1;
  pid_ = -1;
  return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

std::string Named(const TReply& reply, const std::string& name) {
  for (const std::string& line : reply.values) {
    if (line.rfind(name + "=", 0) == 0) return line.substr(name.size() + 1);
  }
  return "(none)";
}

TAgentProcess::TAgentProcess(const TAgentOptions& options) {
  WriteConfig(options.config);
  std::vector<std::string> words = options.switches;
  words.insert(words.begin(), options.program.empty() ? QOV_AGENT : options.program);
  words.push_back(ConfigPath());
  // Reports of a sanitizer go to files, which the destructor looks for: a detached agent has no
  // console.
  const std::string log = ":log_path=" + folder_.Path("sanitizer");
  std::vector<std::string> environment = options.environment;
  environment.push_back("ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0" + log);
  environment.push_back("UBSAN_OPTIONS=print_stacktrace=1" + log);
  environment.push_back("TSAN_OPTIONS=halt_on_error=1" + log);
  started_.emplace(words, environment, folder_.Path("console"));
  pid_ = started_->Pid();
  if (!options.waitForListening) return;
  if (std::count(words.begin(), words.end(), "-i") != 0) {
    WaitFor("Listening...");
  } else {
    Wait();
    WaitFor("\n", 1, "pid");
    pid_ = atoi(ReadFile("pid").c_str());
  }
}

TAgentProcess::~TAgentProcess() {
  started_.reset();
  // What the agent became: a detached process, or the one that an upgrade started.
  Await([this] {
    const std::vector<pid_t> left = Running();
    for (const pid_t pid : left) kill(pid, SIGKILL);
    return left.empty();
  });
  for (const auto& entry : fs::directory_iterator(folder_.Path())) {
    const std::string name = entry.path().filename();
    if (name.rfind("sanitizer", 0) == 0) ADD_FAILURE() << ReadFile(name);
  }
}

std::vector<pid_t> TAgentProcess::Running() const {
  std::vector<pid_t> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const pid_t pid = atoi(entry.path().filename().c_str());
    const std::string words = pid > 1 ? ::ReadFile(entry.path() / "cmdline") : "";
    if (words.find(ConfigPath()) != std::string::npos) found.push_back(pid);
  }
  return found;
}

void TAgentProcess::WriteConfig(const std::string& config) const {
  // Put in place whole: an agent may be loading it.
  const std::string fresh = folder_.File(
      "qov.cfg.fresh", "host=127.0.0.1\nport=" + std::to_string(port_) + "\npassword=" + kPassword +
                           "\nqovpath=" QOV_AGENT "\ntmpdir=" + folder_.Folder("tmp") +
                           "\npidfile=" + folder_.Path("pid") +
                           "\nfilterlist=127.0.0.1\nfiltermarks=1\nlogsuccess=1\n" + config);
  fs::rename(fresh, ConfigPath());
}

bool TAgentProcess::WaitFor(const std::string& text, int times, const char* file) const {
  return Await([&] {
    const std::string content = ReadFile(file);
    int count = 0;
    for (size_t at = 0; (at = content.find(text, at)) != std::string::npos; ++at) ++count;
    return count >= times;
  });
}

bool TAgentProcess::WaitForPort(bool open) const {
  return Await([&] { return TRawPeer(port_).Connected() == open; });
}

int TAgentProcess::Wait(int limitMs) {
  const int status = started_->Wait(limitMs);
  if (status != -1) pid_ = -1;
  return status;
}

bool TAgentProcess::FindServer(const std::string& program) {
  return Await([&] {
    for (const pid_t pid : Running()) {
      std::error_code error;
      pid_ = pid;
      if (fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", error) == program) return true;
    }
    return false;
  });
}

std::string TAgentProcess::Packet(const std::string& command,
                                  const std::vector<std::string>& params) {
  std::string text = command + "\n";
  for (const std::string& param : params) text += param + "\n";
  return BuildRequest(kPassword, kSessionKey, text + "\r");
}

TReply TAgentProcess::Ask(const std::string& command,
                          const std::vector<std::string>& params) const {
  TRawPeer peer(port_);
  return peer.Send(Packet(command, params)) ? Decode(peer.ReceiveAll(20000)) : TReply();
}

int TAgentProcess::CountDescriptors() const {
  std::error_code error;
  const fs::directory_iterator list("/proc/" + std::to_string(pid_) + "/fd", error);
  return static_cast<int>(std::distance(begin(list), end(list)));
}

int Repeats(int brief, int full) { return getenv("QOV_STRESS") != nullptr ? full : brief; }
