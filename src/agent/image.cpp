#include "agent/image.h"

#include <errno.h>
#include <stdio.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <vector>

#include "agent/signals.h"
#include "checks/process/child.h"
#include "checks/process/tempfile.h"

namespace {

char** startArguments = nullptr;
std::vector<char*> startEnvironment;
rlimit startLimit = {};

void RaiseDescriptorLimit() {
  rlimit raised = startLimit;
  raised.rlim_cur = raised.rlim_max;
  setrlimit(RLIMIT_NOFILE, &raised);
}

}  // namespace

void RememberStart(char** argv, char** envp) {
  alarm(0);  // the limit of a former image's crash, which holds until this one has started
  startArguments = argv;
  // A copy: setting a variable may write into the array that the process was started with.
  while (*envp != nullptr) startEnvironment.push_back(*envp++);
  startEnvironment.push_back(nullptr);
  getrlimit(RLIMIT_NOFILE, &startLimit);
  SetChildDescriptorLimit(startLimit);
  RaiseDescriptorLimit();
}

void ReplaceImage(const char* path) {
  fflush(stdout);
  setrlimit(RLIMIT_NOFILE, &startLimit);
  ReleaseSignals();
  // A file that was written a moment ago is "busy" while a child that a session has just started
  // still holds a copy of the descriptor: five seconds at most.
  constexpr timespec kBusyPause{0, 20'000'000};
  for (int i = 0; i < 250; ++i) {
    if (ExecuteAndRemoveTempFiles(path, startArguments, startEnvironment.data()) != ETXTBSY) break;
    nanosleep(&kBusyPause, nullptr);
  }
  alarm(0);
  HoldSignals();
  RaiseDescriptorLimit();
}
