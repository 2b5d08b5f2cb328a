#include <zlib.h>

#include <fstream>
#include <memory>
#include <random>

#include "bench/reference.h"
#include "checks/files/diskfolder.h"
#include "checks/files/filecontent.h"
#include "fs/files.h"

namespace {

constexpr size_t kFileBytes = (size_t{256} << 20) + 1;  // a multiple of 2048 has no checksum
constexpr int kFolders = 1000;
constexpr int kFilesPerFolder = 200;

const TBenchFolder& Folder() {
  static const TBenchFolder folder;
  return folder;
}

/// Two files with the same random content.
const std::string& File(bool second) {
  static const std::string paths[2] = {Folder().Path("a"), Folder().Path("b")};
  static const bool written = [] {
    std::mt19937_64 random(1);
    std::vector<uint64_t> words(kFileBytes / sizeof(uint64_t) + 1);
    std::generate(words.begin(), words.end(), random);
    for (const std::string& path : paths) {
      std::ofstream(path, std::ios::binary)
          .write(reinterpret_cast<const char*>(words.data()), kFileBytes);
    }
    return true;
  }();
  benchmark::DoNotOptimize(written);
  return paths[second];
}

const std::string& Tree() {
  static const std::string path = [] {
    const std::string tree = Folder().Path("tree");
    for (int i = 0; i < kFolders; ++i) {
      const std::string folder = tree + "/folder" + std::to_string(i);
      std::filesystem::create_directories(folder);
      for (int k = 0; k < kFilesPerFolder; ++k) {
        std::ofstream(folder + "/file" + std::to_string(k)) << i;
      }
    }
    return tree;
  }();
  return path;
}

void ChecksumAgainstZlib(benchmark::State& state) {
  const char* path = File(false).c_str();
  unsigned sum = 0;
  uLong zlibSum = 0;
  const auto ours = [&] {
    String error;
    if (GetFileCRC(path, &sum, error) == 0) state.SkipWithError(error.CStr());
  };
  const auto reference = [&] {
    return TimeCall([&] {
      const TFd file = OpenForReading(path);
      const std::unique_ptr<char[]> buffer(new char[kReadBytes]);
      zlibSum = crc32(0, nullptr, 0);
      ssize_t n;
      while ((n = ReadFully(file.Get(), buffer.get(), kReadBytes)) > 0) {
        zlibSum =
            crc32(zlibSum, reinterpret_cast<const Bytef*>(buffer.get()), static_cast<uInt>(n));
      }
    });
  };
  Compare(state, ours, reference);
  if (~sum != zlibSum) state.SkipWithError("the sums differ");
}
QOV_COMPARISON(ChecksumAgainstZlib);

void ChecksumAgainstCksum(benchmark::State& state) {
  const auto ours = [&] {
    unsigned sum = 0;
    String error;
    if (GetFileCRC(File(false).c_str(), &sum, error) == 0) state.SkipWithError(error.CStr());
  };
  Compare(state, ours, [] { return TimeProgram({"cksum", File(false)}, Folder().Path("out")); });
}
QOV_COMPARISON(ChecksumAgainstCksum);

void CompareFilesAgainstCmp(benchmark::State& state) {
  const auto ours = [&] {
    if (CompareFiles(File(false).c_str(), File(true).c_str()) != 1) state.SkipWithError("unequal");
  };
  Compare(state, ours, [] {
    return TimeProgram({"cmp", File(false), File(true)}, Folder().Path("out"));
  });
}
QOV_COMPARISON(CompareFilesAgainstCmp);

void FolderSizeAgainstDu(benchmark::State& state) {
  const String tree(Tree().c_str());
  const auto ours = [&] {
    if (GetFolderSize(tree, 1) <= 0) state.SkipWithError("no size");
  };
  Compare(state, ours, [] { return TimeProgram({"du", "-sb", Tree()}, Folder().Path("out")); });
}
QOV_COMPARISON(FolderSizeAgainstDu);

void CountFilesAgainstFind(benchmark::State& state) {
  const String tree(Tree().c_str());
  const auto ours = [&] {
    if (CountFiles(tree, "*", 1, cfAllFiles, 0) != kFolders * kFilesPerFolder)
      state.SkipWithError("another count");
  };
  Compare(state, ours, [] {
    return TimeProgram({"sh", "-c", "find " + Tree() + " -type f | wc -l"}, Folder().Path("out"));
  });
}
QOV_COMPARISON(CountFilesAgainstFind);

}  // namespace

BENCHMARK_MAIN();
