#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include "built.h"
#include "support/peers.h"

/// A program that a test started through the shell, without input. Ended by its process id.
class TProcess : TScope {
 public:
  /// @param line  ends in "exec PROGRAM", which so has the shell's process id
  explicit TProcess(const std::string& line) {
    const std::string all = "exec </dev/null; " + line;
    const char* const words[] = {"sh", "-c", all.c_str(), nullptr};
    char** const argv = const_cast<char**>(words);
    EXPECT_EQ(0, posix_spawn(&pid_, "/bin/sh", nullptr, nullptr, argv, environ));
  }
  ~TProcess() {
    if (pid_ > 1) kill(pid_, SIGKILL);
    Wait();
  }
  /// -1 once it has ended.
  pid_t Pid() const { return pid_; }
  /// Exit status: 0 to 255, 1000 + signal, or -1 while it runs on.
  int Wait(int limitMs = 20000) {
    int status = 0;
    const auto ended = [&] { return waitpid(pid_, &status, WNOHANG) == pid_; };
    if (pid_ > 0 && Await(ended, limitMs)) {
      pid_ = -1;
      status_ = WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
    }
    return status_;
  }

 private:
  pid_t pid_ = -1;
  int status_ = -1;
};

/// Value of the line "name=..." in a reply; "(none)" without one.
inline std::string Named(const TReply& reply, const std::string& name) {
  for (const std::string& line : reply.values)
    if (line.starts_with(name + "=")) return line.substr(name.size() + 1);
  return "(none)";
}

struct TAgentOptions {
  std::string config{};        ///< lines behind the standard ones (a key's last wins)
  std::string switches{"-i"};  ///< in front of the configuration file
  std::string faults{};        ///< NAME='VALUE' of programs/faults.cpp
  std::string shell{};         ///< what the shell does first
};

/// An agent with a folder and port of its own, that listens or has ended. Ended by its process id.
class TAgentProcess : TScope {
 public:
  explicit TAgentProcess(const TAgentOptions& options = {}) : process_(Prepare(options)) {
    Await([&] {
      const int status = process_.Wait(0);  // 0: detached
      return status == 0 ? Ask("GetInfo").code == "200" : status > 0 || Holds("Listening...");
    });
  }
  ~TAgentProcess() {
    Await([this] {
      const std::vector<pid_t> left = Running();
      for (const pid_t pid : left) kill(pid, SIGKILL);
      return left.empty();
    });
    for (const auto& entry : fs::directory_iterator(folder.Path())) {
      const std::string name = entry.path().filename();
      if (name.starts_with("sanitizer")) ADD_FAILURE() << ReadFile(name);
    }
  }

  const TTempDir folder;
  const std::string configPath = folder.Path("qov.cfg");
  const std::string program = folder.Path("qov");  ///< what a restart starts: a script
  int port = FindFreePort();                       ///< where to ask

  /// Replaces the configuration file, at once, by the standard lines and `config`.
  void WriteConfig(const std::string& config) const {
    const std::string helpers = QOV_SOURCE_DIR "/packaging/helpers/";
    const std::string text =
        "host=127.0.0.1\nport=" + std::to_string(port) + "\npassword=" + kPassword +
        "\nqovpath=" + program + "\ntmpdir=" + folder.Folder("tmp") +
        "\npidfile=" + folder.Path("pid") +
        "\nfilterlist=127.0.0.1\nfiltermarks=1\nlogsuccess=1\ncpuusagescript=" + helpers +
        "cpuusage\nproclistscript=" + helpers + "proclist\nproccntscript=" + helpers +
        "proccount\n" + config;
    fs::rename(folder.File("fresh", text), configPath);
  }
  /// A file of the folder; "console" has what the agent printed.
  std::string ReadFile(const std::string& name) const { return ::ReadFile(folder.Path(name)); }
  /// Whether the console (or another file) holds `text` so often.
  bool Holds(const std::string& text, int times = 1, const char* file = "console") const {
    const std::string content = ReadFile(file);
    for (size_t at = 0; times > 0; ++at, --times)
      if ((at = content.find(text, at)) == std::string::npos) return false;
    return true;
  }
  bool WaitFor(const std::string& text, int times = 1, const char* file = "console") const {
    return Await([&] { return Holds(text, times, file); });
  }
  bool WaitForSessions(int count) const {
    return Await([&] { return Info("ActiveConnections") == std::to_string(count); });
  }
  bool WaitForPort(bool open) const {
    return Await([&] { return TRawPeer(port).Open() == open; });
  }

  /// The process that serves; -1 when there is none.
  pid_t Pid() const {
    const std::vector<pid_t> found = Running();
    return process_.Pid() != -1 || found.empty() ? process_.Pid() : found[0];
  }
  std::string Proc(const char* name) const { return "/proc/" + std::to_string(Pid()) + "/" + name; }
  bool Signal(int signal) const { return Pid() > 1 && kill(Pid(), signal) == 0; }
  int Wait(int limitMs = 20000) { return process_.Wait(limitMs); }

  /// One request to the agent and its decoded reply; code "" when none came.
  TReply Ask(const std::string& command, const std::vector<std::string>& params = {}) const {
    TRawPeer peer(port);
    return peer.Ask(command, params) ? peer.Reply() : TReply();
  }
  /// What "GetInfo" tells under `name`; "(none)" without an answer.
  std::string Info(const std::string& name) const { return Named(Ask("GetInfo"), name); }

 private:
  std::string Prepare(const TAgentOptions& options) const {
    folder.File("qov", "#!/bin/sh\nexec " QOV_AGENT " \"$@\"\n");
    fs::permissions(program, fs::perms::owner_all);
    WriteConfig(options.config);
    // Reports of a sanitizer go to files, as a detached agent has no console.
    const std::string log = ":log_path=" + folder.Path("sanitizer");
    return options.shell + "exec >" + folder.Path("console") +
           " 2>&1 env ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0" + log +
           " UBSAN_OPTIONS=print_stacktrace=1" + log + " TSAN_OPTIONS=halt_on_error=1" + log +
           (options.faults.empty() ? " " : " LD_PRELOAD=" QOV_FAULTS " " + options.faults) +
           " " QOV_AGENT " " + options.switches + " " + configPath;
  }
  std::vector<pid_t> Running() const {
    std::vector<pid_t> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      const pid_t pid = atoi(entry.path().filename().c_str());
      const std::string words = pid > 1 ? ::ReadFile(entry.path() / "cmdline") : "";
      if (words.find(configPath) != std::string::npos) found.push_back(pid);
    }
    return found;
  }

  TProcess process_;
};

inline long Count(const std::string& folder) {
  return std::distance(fs::directory_iterator(folder), {});
}

/// How often a test repeats what it does; `full` in the runs of tools/stress.sh.
inline int Repeats(int brief, int full) { return getenv("QOV_STRESS") == nullptr ? brief : full; }
