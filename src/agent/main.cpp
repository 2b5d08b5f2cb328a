#include <stdio.h>
#include <unistd.h>

#include "agent/startup.h"

int main(int argc, char** argv, char** envp) {
  const int status = RunAgent(argc, argv, envp);
  fflush(stdout);
  _exit(status);  // session threads may still run: no destructor may pull globals away from them
}
