#include "client/rows.h"

static TCommand Process() {
  return {.name = "process",
          .agent = "TEST-Process",
          .summary = "number of running processes of a name",
          .params = {Argument(2, "NAME", "process name, as the agent's script understands it")},
          .fields = {{"count", fieldCount}},
          .enabledBy = "Process",
          .metrics = {{"count", "", First}}};
}

static TCommand Cpu() {
  return {.name = "cpu",
          .agent = "TEST-CPU",
          .summary = "CPU usage, as the agent's script measures it",
          .fields = {{"usage", fieldPercent}},
          .enabledBy = "CPU Usage",
          .metrics = {{"usage", "%", First}}};
}

static TCommand External() {
  return {.name = "external",
          .agent = "TEST-ExternalPrg",
          .summary = "exit code of a program run on the agent's host",
          .params = {Argument(1, "COMMAND", "command line, one argument of the shell"),
                     TimeLimit(4, "8000")},
          .fields = {{"exit_code", fieldCount}},
          .enabledBy = "External",
          .verdict = verdictExitCode};
}

static TCommand ShellScript() {
  return {.name = "shell-script",
          .agent = "TEST-ShellScript",
          .summary = "result line of a local script, sent to and run on the agent's host",
          .params = {Text(1, "--command", "%script% %params%", "command line to run it with"),
                     {.position = 2,
                      .form = paramContents,
                      .option = "SCRIPT",
                      .preset = nullptr,
                      .help = "local file with the script"},
                     Data(3, "--params", "what stands for %params%"),
                     Whole(4, "--time-limit", "8", "seconds that it may run; 0: no limit"),
                     Whole(5, "--lines", "100", "output lines to bring back")},
          .fields = {{"result", fieldLines}, {"output", fieldLines}},
          .enabledBy = "Shell Script",
          .verdict = verdictResultLine};
}

static TCommand Tcp() {
  return {.name = "tcp",
          .agent = "TEST-TCP",
          .summary = "time and answer of a TCP service, from the agent's side",
          .params = {Argument(1, "HOST", "host to connect to"), PortArgument(2),
                     TimeLimit(3, "5000"), Data(4, "--send", "data to send"),
                     Whole(5, "--receive", "0", "bytes to wait for, 8192 at most; 0: do not wait")},
          .fields = {{"time", fieldMs}, {"answer", fieldLines}},
          .enabledBy = "TCP",
          .metrics = {{"time", "ms", First}},
          .verdict = verdictAnswer};
}

static TCommand Udp() {
  return {.name = "udp",
          .agent = "TEST-UDP",
          .summary = "time and answer of a UDP service, from the agent's side",
          .params = {Argument(1, "HOST", "host to send to"),
                     PortArgument(2),
                     TimeLimit(3, "2000"),
                     Whole(4, "--attempts", "1", "datagrams to try"),
                     {.position = 5,
                      .form = paramData,
                      .option = "--send",
                      .preset = nullptr,
                      .help = "data to send"},
                     Whole(6, "--receive", "0", "bytes to wait for, 8192 at most; 0: do not wait")},
          .fields = {{"time", fieldMs}, {"answer", fieldLines}},
          .enabledBy = "UDP",
          .metrics = {{"time", "ms", First}},
          .verdict = verdictAnswer};
}

static TCommand Execute() {
  return {.name = "execute",
          .agent = "ACT-ExternalCmd",
          .summary = "action: run a program on the agent's host",
          .params = {Argument(1, "COMMAND", "command line, one argument of the shell"),
                     Text(2, "--directory", "", "folder to run it in"), Fixed(3, "0"),
                     TimeLimit(4, "8000")},
          .fields = {{"exit_code", fieldCount}}};
}

static TCommand Send() {
  return {.name = "send",
          .agent = "ACT-TCPUDPsend",
          .summary = "action: send data to a TCP or UDP service",
          .params = {Argument(1, "HOST", "host to send to"), PortArgument(2),
                     Flag(3, "--udp", "send datagrams instead of connecting"),
                     DataArgument(4, "DATA", "data to send"),
                     Whole(5, "--delay", "0", "seconds before the data of --then"),
                     Data(6, "--then", "further data")},
          .fields = {{"outcome", fieldText}}};
}

static TCommand Syslog() {
  return {.name = "syslog",
          .agent = "ACT-Syslog",
          .summary = "action: send a message to a syslog receiver",
          .params = {Argument(1, "HOST", "receiver"),
                     Whole(2, "--syslog-port", "514", "the receiver's UDP port"),
                     Whole(3, "--facility", "1", "facility number"),
                     Whole(4, "--severity", "5", "severity, 0 (worst) to 7"),
                     DataArgument(5, "MESSAGE", "message text")},
          .fields = {{"outcome", fieldText}}};
}

static TCommand Processes() {
  return {.name = "processes",
          .agent = "GetProcessesList",
          .summary = "running processes, as the agent's script lists them",
          .shape = shapeList,
          .fields = {{"processes", fieldLines}},
          .enabledBy = "Process"};
}

static TCommand Info() {
  return {.name = "info",
          .agent = "GetInfo",
          .summary = "what the agent is, its counters, tests and actions",
          .shape = shapeKeys,
          .fields = {{"ActiveConnections", fieldCount},
                     {"OpenedConnections", fieldCount},
                     {"FailedConnections", fieldCount}},
          .metrics = {{"active", "", First},
                      {"opened", "c", [](const TNumbers& counters) { return counters[1]; }},
                      {"failed", "c", [](const TNumbers& counters) { return counters[2]; }}}};
}

static TCommand Settings() {
  return {.name = "settings",
          .agent = "GetSettings",
          .summary = "what info tells, and the settings that a server may change",
          .shape = shapeKeys,
          .hasPassword = true};
}

/// A command of administration: nothing in, a word out.
static TCommand Order(const char* name, const char* agent, const char* summary) {
  return {.name = name, .agent = agent, .summary = summary, .fields = {{"outcome", fieldText}}};
}

std::vector<TCommand> SystemRows() {
  return {Process(),
          Processes(),
          Cpu(),
          External(),
          ShellScript(),
          Tcp(),
          Udp(),
          Execute(),
          Send(),
          Syslog(),
          Info(),
          Settings(),
          Order("reload", "ReloadCfg", "have the agent read its configuration file again"),
          Order("restart", "ReloadApp", "have the agent execute itself again"),
          Order("quit", "QUIT", "stop the agent")};
}

static TCommand Unsupported(const char* name, const char* agent) {
  return {.name = name, .agent = agent, .summary = "no check of this platform: answered \"500\""};
}

std::vector<TCommand> UnsupportedRows() {
  return {Unsupported("disk-space", "TEST-DiskSpace"),
          Unsupported("service", "TEST-Service"),
          Unsupported("nt-log", "TEST-NTLog"),
          Unsupported("perf-counter", "TEST-PerfCounter"),
          Unsupported("script", "TEST-Script"),
          Unsupported("snmp", "TEST-SNMP"),
          Unsupported("icmp-ping", "TEST-Ping"),
          Unsupported("services", "GetServicesList"),
          Unsupported("event-log-files", "GetEventLogFiles"),
          Unsupported("event-log-sources", "GetEventLogSources"),
          Unsupported("drives", "GetDriveList")};
}
