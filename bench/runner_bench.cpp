#include <benchmark/benchmark.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

#include "checks/process/runner.h"

namespace {

constexpr size_t kResidentBytes = size_t{256} << 20;

/// Memory that the process holds and has touched, as a large agent would.
const char* Resident() {
  static const std::unique_ptr<char[]> block = [] {
    std::unique_ptr<char[]> bytes(new char[kResidentBytes]);
    memset(bytes.get(), 1, kResidentBytes);
    return bytes;
  }();
  return block.get();
}

void RunThroughSystemEx(benchmark::State& state) {
  benchmark::DoNotOptimize(Resident());
  for (auto _ : state) {
    int exitCode;
    String err;
    if (SystemEx("/bin/true", nullptr, 5000, exitCode, err) != 1) state.SkipWithError(err.CStr());
  }
}
BENCHMARK(RunThroughSystemEx)->UseRealTime()->Unit(benchmark::kMicrosecond);

/// What SystemEx is measured against: a copied process.
void RunThroughFork(benchmark::State& state) {
  benchmark::DoNotOptimize(Resident());
  for (auto _ : state) {
    const pid_t pid = fork();
    if (pid == 0) {
      execl("/bin/true", "/bin/true", nullptr);
      _exit(255);
    }
    int status;
    if (pid == -1 || waitpid(pid, &status, 0) != pid) state.SkipWithError("fork failed");
  }
}
BENCHMARK(RunThroughFork)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
