#pragma once

#include <signal.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "client/vxwire.h"
#include "support/peers.h"
#include "support/scopes.h"

/// A program that a test started, without input; what it prints is appended to the file `output`.
/// Ended by its process id.
class TProcess : TScope {
 public:
  /// @param environment  NAME=VALUE, in front of the test's own
  TProcess(std::vector<std::string> words, std::vector<std::string> environment,
           const std::string& output);
  ~TProcess();
  /// -1 when it could not be started or has been waited for.
  pid_t Pid() const { return pid_; }
  bool Signal(int signal) const { return pid_ > 1 && kill(pid_, signal) == 0; }
  /// Exit status: 0 to 255, 1000 + signal, or -1 while it runs on.
  int Wait(int limitMs = 20000);

 private:
  pid_t pid_ = -1;
};

struct TAgentOptions {
  std::string config{};                     ///< lines behind the standard ones (a key's last wins)
  std::vector<std::string> switches{"-i"};  ///< in front of the configuration file
  std::vector<std::string> environment{};   ///< as of TProcess
  std::string program{};                    ///< "": the built agent
  bool waitForListening = true;
};

/// Value of the line "name=..." in a reply; "(none)" without one.
std::string Named(const TReply& reply, const std::string& name);

/// A running agent with a folder, configuration and loopback port of its own; ended by its process
/// id. Started with -d it detaches, and the pid file names the process that serves.
class TAgentProcess : TScope {
 public:
  static constexpr char kPassword[] = "test password";
  static constexpr char kSessionKey[] = "session key";

  explicit TAgentProcess(const TAgentOptions& options = {});
  ~TAgentProcess();
  int Port() const { return port_; }
  /// Where to ask from now on: the agent has changed its port.
  void FollowPort(int port) { port_ = port; }
  /// The process that serves; -1 when there is none.
  pid_t Pid() const { return pid_; }
  const TTempDir& Folder() const { return folder_; }
  std::string ConfigPath() const { return folder_.Path("qov.cfg"); }
  std::string ReadFile(const std::string& name) const { return ::ReadFile(folder_.Path(name)); }
  /// Replaces the configuration file by the standard lines and `config`.
  void WriteConfig(const std::string& config) const;

  /// What the agent has printed so far.
  std::string Console() const { return ReadFile("console"); }
  /// Waits until the console (or another file of the folder) holds `text` at least `times` times.
  bool WaitFor(const std::string& text, int times = 1, const char* file = "console") const;
  /// Waits until nothing but a connection's refusal answers, or something does.
  bool WaitForPort(bool open) const;
  /// Exit status of the started process, as TProcess::Wait.
  int Wait(int limitMs = 20000);
  bool Signal(int signal) const { return pid_ > 1 && kill(pid_, signal) == 0; }
  /// Waits for a process of this agent that runs `program`, which is the serving one from then on.
  bool FindServer(const std::string& program);

  /// One request to the agent and its decoded reply; code "" when none came.
  TReply Ask(const std::string& command, const std::vector<std::string>& params = {}) const;
  /// What "GetInfo" tells under `name`; "(none)" without an answer.
  std::string Info(const std::string& name) const { return Named(Ask("GetInfo"), name); }
  /// The packet of a request under this agent's password, and the reply to it.
  static std::string Packet(const std::string& command,
                            const std::vector<std::string>& params = {});
  static TReply Decode(const std::string& bytes) { return DecodeReply(bytes, kSessionKey); }
  /// Number of the serving process's open descriptors.
  int CountDescriptors() const;

 private:
  /// The running processes with this agent's configuration.
  std::vector<pid_t> Running() const;

  const TTempDir folder_;
  int port_ = FindFreePort();
  std::optional<TProcess> started_;
  pid_t pid_ = -1;
};

/// How often a test repeats what it does: `brief` in every run, `full` in the long ones that
/// tools/stress.sh starts.
int Repeats(int brief, int full);
