#include <stdio.h>
#include <unistd.h>

#include "agent/startup.h"
#include "config/status.h"

/// The agent under another version: what an upgrade of a test puts in place.
int main(int argc, char** argv, char** envp) {
  AgentStatus.AgentVersion = "1.29next";
  const int status = RunAgent(argc, argv, envp);
  fflush(stdout);
  _exit(status);
}
