#pragma once

#include <signal.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "support/peers.h"
#include "support/scopes.h"

/// A program that a test started through the shell, without input. Ended by its process id.
class TProcess : TScope {
 public:
  /// @param line  ends in "exec PROGRAM", which so has the shell's process id
  explicit TProcess(const std::string& line);
  ~TProcess();
  /// -1 when it could not be started or has ended.
  pid_t Pid() const { return pid_; }
  bool Signal(int signal) const { return pid_ > 1 && kill(pid_, signal) == 0; }
  /// Exit status: 0 to 255, 1000 + signal, or -1 while it runs on.
  int Wait(int limitMs = 20000);

 private:
  pid_t pid_ = -1;
  int status_ = -1;
};

struct TAgentOptions {
  std::string config{};        ///< lines behind the standard ones (a key's last wins)
  std::string switches{"-i"};  ///< in front of the configuration file
  std::string faults{};        ///< NAME='VALUE' of programs/faults.cpp
};

/// Value of the line "name=..." in a reply; "(none)" without one.
std::string Named(const TReply& reply, const std::string& name);

/// An agent with a folder, configuration and loopback port of its own, which listens or has ended;
/// ended by its process id. Started with -d it detaches.
class TAgentProcess : TScope {
 public:
  explicit TAgentProcess(const TAgentOptions& options = {});
  ~TAgentProcess();

  const TTempDir folder;
  const std::string configPath = folder.Path("qov.cfg");
  const std::string program = folder.Path("qov");  ///< what a restart starts: a script
  int port = FindFreePort();                       ///< where to ask

  /// Replaces the configuration file by the standard lines and `config`.
  void WriteConfig(const std::string& config) const;
  /// A file of the folder; "console" has what the agent printed.
  std::string ReadFile(const std::string& name) const { return ::ReadFile(folder.Path(name)); }
  /// Waits until the console (or another file) holds `text` at least `times` times.
  bool WaitFor(const std::string& text, int times = 1, const char* file = "console") const;
  /// Waits until connections are taken, or refused.
  bool WaitForPort(bool open) const {
    return Await([&] { return TRawPeer(port).Open() == open; });
  }

  /// The process that serves; -1 when there is none.
  pid_t Pid() const { return pid_; }
  bool Signal(int signal) const { return pid_ > 1 && kill(pid_, signal) == 0; }
  /// Exit status of the started process, as TProcess::Wait.
  int Wait(int limitMs = 20000);
  /// Number of the serving process's open descriptors.
  int CountDescriptors() const;

  /// One request to the agent and its decoded reply; code "" when none came.
  TReply Ask(const std::string& command, const std::vector<std::string>& params = {}) const;
  /// What "GetInfo" tells under `name`; "(none)" without an answer.
  std::string Info(const std::string& name) const { return Named(Ask("GetInfo"), name); }

 private:
  std::string Prepare(const TAgentOptions& options) const;
  /// The running processes with this agent's configuration.
  std::vector<pid_t> Running() const;

  TProcess process_;
  pid_t pid_ = -1;
};

/// How often a test repeats what it does: `brief` in every run, `full` in the long ones that
/// tools/stress.sh starts.
inline int Repeats(int brief, int full) { return getenv("QOV_STRESS") == nullptr ? brief : full; }
