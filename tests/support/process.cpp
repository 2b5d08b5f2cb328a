#include "support/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>

#include "built.h"

namespace fs = std::filesystem;

namespace {

constexpr int kLimitMs = 20000;
constexpr char kSanitizerLog[] = "sanitizer";

/// The texts as system calls take them.
std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

/// The running processes with `part` in their command lines.
std::vector<pid_t> ProcessesWith(const std::string& part) {
  std::vector<pid_t> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const pid_t pid = atoi(entry.path().filename().c_str());
    if (pid > 1 && ReadFile(entry.path() / "cmdline").find(part) != std::string::npos) {
      found.push_back(pid);
    }
  }
  return found;
}

std::string Proc(pid_t pid, const char* name) {
  return "/proc/" + std::to_string(pid) + '/' + name;
}

}  // namespace

TProcess::TProcess(std::vector<std::string> words, std::vector<std::string> environment,
                   const std::string& out, const std::string& err) {
  for (char** own = environ; *own != nullptr; ++own) environment.push_back(*own);
  constexpr int kAppend = O_WRONLY | O_CREAT | O_APPEND;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), kAppend, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), kAppend, 0600);
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

bool TProcess::Signal(int signal) const { return pid_ > 1 && kill(pid_, signal) == 0; }

int TProcess::Wait(int limitMs) {
  int status = 0;
  if (pid_ <= 0 || !Await([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, limitMs)) {
    return -1;
  }
  pid_ = -1;
  return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

TProgramRun RunProgram(const std::vector<std::string>& words,
                       const std::vector<std::string>& environment) {
  const TTempDir folder;
  TProcess program(words, environment, folder.Path("out"), folder.Path("err"));
  const int status = program.Wait(60000);
  return {status, ReadFile(folder.Path("out")), ReadFile(folder.Path("err"))};
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
  const std::string log = "log_path=" + folder_.Path(kSanitizerLog);
  std::vector<std::string> environment = options.environment;
  environment.push_back("ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0:" + log);
  environment.push_back("UBSAN_OPTIONS=print_stacktrace=1:" + log);
  environment.push_back("TSAN_OPTIONS=halt_on_error=1:" + log);
  const std::string console = folder_.Path("console");
  started_.emplace(words, environment, console, console);
  pid_ = started_->Pid();
  if (!options.waitForListening) return;
  if (std::count(words.begin(), words.end(), "-i") != 0) {
    WaitFor("Listening...");
    return;
  }
  Wait();
  WaitFor("\n", 1, "pid");
  pid_ = atoi(ReadFile("pid").c_str());
}

TAgentProcess::~TAgentProcess() {
  started_.reset();
  // What the agent became: a detached process, or the one that an upgrade started.
  Await([this] {
    const std::vector<pid_t> left = ProcessesWith(ConfigPath());
    for (const pid_t pid : left) kill(pid, SIGKILL);
    return left.empty();
  });
  for (const auto& entry : fs::directory_iterator(folder_.Path())) {
    const std::string name = entry.path().filename();
    if (name.rfind(kSanitizerLog, 0) == 0) ADD_FAILURE() << ReadFile(name);
  }
}

void TAgentProcess::WriteConfig(const std::string& config) const {
  // Put in place whole: an agent may be loading it.
  const std::string fresh = folder_.File(
      "qov.cfg.fresh", "host=127.0.0.1\nport=" + std::to_string(port_) + "\npassword=" + kPassword +
                           "\nqovpath=" + QOV_AGENT + "\ntmpdir=" + folder_.Folder("tmp") +
                           "\npidfile=" + folder_.Path("pid") +
                           "\nfilterlist=127.0.0.1\nfiltermarks=1\nlogsuccess=1\n" + config);
  fs::rename(fresh, ConfigPath());
}

bool TAgentProcess::WaitFor(const std::string& text, int times, const char* file) const {
  return Await([&] {
    const std::string content = ReadFile(file);
    int count = 0;
    for (size_t at = 0; (at = content.find(text, at)) != std::string::npos; at += text.size()) {
      ++count;
    }
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
    for (const pid_t pid : ProcessesWith(ConfigPath())) {
      std::error_code error;
      if (fs::read_symlink(Proc(pid, "exe"), error) != program) continue;
      pid_ = pid;
      return true;
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

TReply TAgentProcess::Ask(const std::string& command,
                          const std::vector<std::string>& params) const {
  TRawPeer peer(port_);
  if (!peer.Connected() || !peer.Send(Packet(command, params))) return {};
  return Decode(peer.ReceiveAll(kLimitMs));
}

int TAgentProcess::CountDescriptors() const {
  std::error_code error;
  const fs::directory_iterator list(Proc(pid_, "fd"), error);
  return static_cast<int>(std::distance(begin(list), end(list)));
}

long TAgentProcess::CpuMs() const {
  const std::string stat = ::ReadFile(Proc(pid_, "stat"));
  const size_t end = stat.rfind(')');
  long user = 0;
  long system = 0;
  if (end == std::string::npos ||
      sscanf(stat.c_str() + end + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user,
             &system) != 2) {
    return -1;
  }
  return (user + system) * 1000 / sysconf(_SC_CLK_TCK);
}

int Repeats(int brief, int full) { return getenv("QOV_STRESS") != nullptr ? full : brief; }

bool AnswersInTime(const TAgentProcess& agent, const std::string& command,
                   const std::vector<std::string>& params) {
  const long long start = NowMs();
  const TReply reply = agent.Ask(command, params);
  const long long tookMs = NowMs() - start;
  EXPECT_EQ("200", reply.code) << command << ": " << reply.text;
  EXPECT_GE(kAnswerLimitMs, tookMs) << command;
  return reply.code == "200" && tookMs <= kAnswerLimitMs;
}

TProbe::TProbe(const TAgentProcess& agent, const std::string& command,
               const std::vector<std::string>& params)
    : thread_([this, &agent, command, params] {
        while (!stop_ && AnswersInTime(agent, command, params)) ++answered_;
      }) {}

int TProbe::Stop() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
  return answered_;
}
