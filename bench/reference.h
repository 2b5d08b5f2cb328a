#pragma once

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

/// Measuring against programs and libraries that do the same work on the same cached files.

/// A folder for a benchmark's files, removed at the end.
class TBenchFolder {
 public:
  TBenchFolder() : path_(std::filesystem::temp_directory_path() / "qovbench-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) abort();
  }
  ~TBenchFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }
  std::string Path(const std::string& name) const { return path_ + '/' + name; }

 private:
  std::string path_;
};

/// Times of one run, seconds.
struct TTimes {
  double wall;
  double cpu;
};

inline double Seconds(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

inline double Seconds(const timeval& t) {
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
}

template <class TCall>
TTimes TimeCall(const TCall& call) {
  const double wall = Seconds(CLOCK_MONOTONIC);
  const double cpu = Seconds(CLOCK_THREAD_CPUTIME_ID);
  call();
  return {Seconds(CLOCK_MONOTONIC) - wall, Seconds(CLOCK_THREAD_CPUTIME_ID) - cpu};
}

/// Runs a program with LC_ALL=C. Its output goes to a file: one that ends in /dev/null lets some
/// programs stop early.
inline TTimes TimeProgram(const std::vector<std::string>& words, const std::string& output) {
  std::vector<char*> argv;
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  const double wall = Seconds(CLOCK_MONOTONIC);
  const pid_t pid = fork();
  if (pid == 0) {
    const int fd = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(fd, STDOUT_FILENO);
    setenv("LC_ALL", "C", 1);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  rusage used;
  if (wait4(pid, &status, 0, &used) != pid || WEXITSTATUS(status) == 127) abort();
  return {Seconds(CLOCK_MONOTONIC) - wall, Seconds(used.ru_utime) + Seconds(used.ru_stime)};
}

/// Runs ours and the reference in turn and reports how many times as fast ours was, on the best
/// run of each: `ratio` by the clock, `cpu_ratio` by processor time.
template <class TOurs, class TReference>
void Compare(benchmark::State& state, const TOurs& ours, const TReference& reference) {
  TTimes best[2] = {{1e9, 1e9}, {1e9, 1e9}};
  const auto keep = [](TTimes& kept, const TTimes& times) {
    kept = {std::min(kept.wall, times.wall), std::min(kept.cpu, times.cpu)};
  };
  for (auto _ : state) {
    const TTimes times = TimeCall(ours);
    state.SetIterationTime(times.wall);
    keep(best[0], times);
    keep(best[1], reference());
  }
  state.counters["ratio"] = best[1].wall / best[0].wall;
  state.counters["cpu_ratio"] = best[1].cpu / best[0].cpu;
  state.counters["best_ms"] = best[0].wall * 1e3;
  state.counters["reference_ms"] = best[1].wall * 1e3;
}

/// Registers a comparison: its own time is the one of ours, over a fixed number of rounds.
#define QOV_COMPARISON(function) \
  BENCHMARK(function)->UseManualTime()->Iterations(15)->Unit(benchmark::kMillisecond)
