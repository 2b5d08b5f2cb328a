#include "agent/limits.h"

#include <sys/resource.h>

#include "checks/process/runner.h"

namespace {

rlimit Current() {
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  return limit;
}

const rlimit& Original() {
  static const rlimit original = Current();
  return original;
}

}  // namespace

void RaiseDescriptorLimit() {
  SetChildDescriptorLimit(Original());
  rlimit raised = Original();
  raised.rlim_cur = raised.rlim_max;
  setrlimit(RLIMIT_NOFILE, &raised);
}

void RestoreDescriptorLimit() { setrlimit(RLIMIT_NOFILE, &Original()); }

size_t DescriptorLimit() { return static_cast<size_t>(Current().rlim_cur); }
