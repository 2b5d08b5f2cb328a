#include "checks/files/filecontent.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>

#include "fs/files.h"
#include "support/scopes.h"

namespace {

TEST(FileContent, RefusesWhatIsNoReadableFile) {
  const TTempDir dir;
  ASSERT_EQ(0, mkfifo(dir.Path("fifo").c_str(), 0600));
  const std::string good = dir.File("good", "text"), fifo = dir.Path("fifo"), none = dir.Path("x");
  for (const std::string& path :
       {dir.Path(), fifo, std::string("/dev/zero"), none, std::string()}) {
    SCOPED_TRACE(path);
    String text("x"), empty;
    EXPECT_EQ(-1, CompareFiles(path.c_str(), good.c_str()));
    EXPECT_EQ(-1, CompareFiles(good.c_str(), path.c_str()));
    EXPECT_EQ(-1, FindStrInFile(path.c_str(), text, 1, 0));
    EXPECT_EQ(-1, FindStrInFile(good.c_str(), empty, 1, 0));
    EXPECT_EQ(FileSize(path.c_str()) == 0 ? 1 : -1, FindFileInFile(good.c_str(), path.c_str()));
  }
}

TEST(FileContent, FindsThePatternFile) {
  const TTempDir dir;
  std::string bytes;
  std::minstd_rand random(7);
  while (bytes.size() < 1'500'000) bytes += static_cast<char>(random());
  const std::string file = dir.File("file", bytes), part = bytes.substr(700'000, 600'000);
  const auto find = [&](const std::string& pattern) {
    return FindFileInFile(file.c_str(), dir.File("pattern", pattern).c_str());
  };
  EXPECT_EQ(1, find(""));
  EXPECT_EQ(700'001, find(part));
  EXPECT_EQ(1'499'980, find(bytes.substr(1'499'979)));
  EXPECT_EQ(1, find(bytes));
  EXPECT_EQ(0, find(bytes + "x"));
  EXPECT_EQ(0, find(part + "not there"));
  ASSERT_EQ(0, truncate(file.c_str(), 9'000'000));  // more than a request may name
  EXPECT_EQ(1, FindFileInFile(file.c_str(), file.c_str()));
}

/// The search as it is described: windows of three lengths, the last length of each carried over.
bool FindInWindows(const std::string& content, const std::string& text, bool wholeWord) {
  const size_t window = std::min(3 * text.size(), content.size() + 1);
  for (size_t start = 0; text.size() <= content.size(); start += window - text.size()) {
    const std::string part = content.substr(start, window) + '\n';  // a blank behind the end
    const auto word = [&part](size_t at) { return isalnum(static_cast<unsigned char>(part[at])); };
    for (size_t p = 0; (p = part.find(text, p)) != std::string::npos; ++p) {
      if (!wholeWord || ((p == 0 || !word(p - 1)) && !word(p + text.size()))) return true;
    }
    if (part.size() <= window) break;
  }
  return false;
}

TEST(FileContent, FindsTextAsTheWindowsDo) {
  const TTempDir dir;
  std::minstd_rand random(1);
  const auto text = [&random](size_t size) {
    std::string s;
    while (s.size() < size) s += "aAbB .-"[random() % 7];
    return s;
  };
  const auto folded = [](std::string s, bool keep) {
    if (!keep) std::transform(s.begin(), s.end(), s.begin(), LoCase);
    return s;
  };
  std::string content, path;
  for (int round = 0; round < 3000; ++round) {
    if (round % 30 == 0) path = dir.File(std::to_string(round), content = text(random() % 60));
    const std::string wanted = text(1 + random() % 4);
    const bool exact = random() % 2 == 0, word = random() % 2 == 0;
    const bool expected = FindInWindows(folded(content, exact), folded(wanted, exact), word);
    String what = ToString(wanted);
    ASSERT_EQ(expected, FindStrInFile(path.c_str(), what, exact, word) > 0)
        << '"' << wanted << "\" in \"" << content << '"' << exact << word;
  }
}

/// Each place of the pattern meets an end of the search's buffer.
TEST(FileContent, RefusedWordsStayRefusedOverManyBuffers) {
  const TTempDir dir;
  std::string bytes;
  while (bytes.size() < 5'000'000) bytes += "..1cats-..cats1.";
  String word("cats");
  for (size_t at = kReadBytes - 5; at < kReadBytes + 15; ++at) {  // where the first buffer ends
    std::string dots(kReadBytes + 50, '.');
    const std::string path = dir.File("f", dots.replace(at, 4, "cats"));
    EXPECT_EQ(static_cast<double>(at) + 1, FindStrInFile(path.c_str(), word, 1, 1));
  }
  EXPECT_EQ(0, FindStrInFile(dir.File("f", bytes).c_str(), word, 1, 1));
  const std::string path = dir.File("f", bytes + "-CATS");
  EXPECT_EQ(0, FindStrInFile(path.c_str(), word, 1, 1));
  EXPECT_EQ(static_cast<double>(bytes.size()) + 2, FindStrInFile(path.c_str(), word, 0, 1));
}

}  // namespace
