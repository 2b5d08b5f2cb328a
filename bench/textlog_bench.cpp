#include <fstream>
#include <random>

#include "bench/reference.h"
#include "checks/log/textlog.h"

namespace {

constexpr size_t kLogBytes = size_t{256} << 20;

const TBenchFolder& Folder() {
  static const TBenchFolder folder;
  return folder;
}

/// A log of random words, about 100 bytes a line; one line in a thousand tells of a time-out.
const std::string& Log() {
  static const std::string path = [] {
    const std::string log = Folder().Path("log");
    std::minstd_rand random(1);
    std::vector<std::string> words(3000);
    for (std::string& word : words) {
      for (size_t n = 2 + random() % 8; n > 0; --n) word += static_cast<char>('a' + random() % 26);
    }
    std::ofstream file(log, std::ios::binary);
    size_t written = 0;
    for (int i = 0; written < kLogBytes; ++i) {
      std::string line = "2026-11-24 10:00:" + std::to_string(10 + i % 50) + " host service[" +
                         std::to_string(random() % 30000) + "]:";
      for (size_t n = 5 + random() % 10; n > 0; --n) line += ' ' + words[random() % words.size()];
      if (i % 1000 == 0) line += " connection timeout";
      line += '\n';
      file << line;
      written += line.size();
    }
    return log;
  }();
  return path;
}

/// Scans the whole log.
void Scan(const TTextLogFilter& filter) {
  double position = 0;
  double sizeBytes = 1;
  double time = 0;
  double current;
  int first;
  String line;
  String error;
  benchmark::DoNotOptimize(CheckFileForExpression2(Log().c_str(), position, sizeBytes, time, filter,
                                                   TTextLogFilter(), 0, 1, first, line, error,
                                                   current));
}

void CompareScan(benchmark::State& state, const TTextLogFilter& filter,
                 std::vector<std::string> program) {
  program.push_back(Log());
  Compare(
      state, [&] { Scan(filter); }, [&] { return TimeProgram(program, Folder().Path("out")); });
}

const TTextLogFilter kRare{"timeout", 0, 1, 0};
const TTextLogFilter kAbsent{"not there", 0, 1, 0};
const TTextLogFilter kEveryLine{"service[", 0, 1, 0};
const TTextLogFilter kFolded{"TimeOut", 0, 0, 0};
const TTextLogFilter kWord{"timeout", 0, 1, 1};
const TTextLogFilter kTerms{"'timeout' or 'refused' or 'denied'", 1, 1, 0};

#define QOV_SCAN(name, filter, ...)                                                 \
  void name(benchmark::State& state) { CompareScan(state, filter, {__VA_ARGS__}); } \
  QOV_COMPARISON(name)

QOV_SCAN(RareTextAgainstGrep, kRare, "grep", "-Fc", "timeout");
QOV_SCAN(AbsentTextAgainstGrep, kAbsent, "grep", "-Fc", "not there");
QOV_SCAN(TextOfEveryLineAgainstGrep, kEveryLine, "grep", "-Fc", "service[");
QOV_SCAN(RareTextAgainstWc, kRare, "wc", "-l");
QOV_SCAN(AbsentTextAgainstWc, kAbsent, "wc", "-l");
QOV_SCAN(TextOfEveryLineAgainstWc, kEveryLine, "wc", "-l");
QOV_SCAN(FoldedTextAgainstGrep, kFolded, "grep", "-Fic", "timeout");
QOV_SCAN(WholeWordAgainstGrep, kWord, "grep", "-Fwc", "timeout");
QOV_SCAN(ThreeTermsAgainstGrep, kTerms, "grep", "-Ec", "timeout|refused|denied");

}  // namespace

BENCHMARK_MAIN();
