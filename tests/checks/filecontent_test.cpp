#include "checks/files/filecontent.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "support/scopes.h"

namespace {

TEST(FileContent, SumsMatchPublishedValues) {
  const TTempDir dir;
  const auto sum = [&dir](const std::string& content) {
    unsigned crc = 0;
    String error;
    const int done = GetFileCRC(dir.File("f", content).c_str(), &crc, error);
    return done == 1 ? std::to_string(~crc) : ToStd(error);
  };
  EXPECT_EQ(std::to_string(0xCBF43926), sum("123456789"));
  EXPECT_EQ(std::to_string(0x414FA339), sum("The quick brown fox jumps over the lazy dog"));
  for (const size_t size : {0, 4096, 2048 * 200})
    EXPECT_EQ("Read error", sum(std::string(size, 'a')));
}

TEST(FileContent, ComparesTheCommonPart) {
  const TTempDir dir;
  const std::string big(700'000, 'b');
  std::string changed = big;
  changed.back() = 'c';
  const struct {
    std::string a, b;
    int result;
  } cases[] = {{"abd", "abcdef", 0}, {"", "x", 1},        {big, big, 1},
               {big, changed, 0},    {big, big + "x", 1}, {"b", changed, 1}};
  for (const auto& c : cases) {
    const std::string a = dir.File("a", c.a);
    const std::string b = dir.File("b", c.b);
    EXPECT_EQ(c.result, CompareFiles(a.c_str(), b.c_str()));
    EXPECT_EQ(c.result, CompareFiles(b.c_str(), a.c_str()));
  }
}

/// Folders, pipes, endless devices and files that give read errors end with an error at once.
TEST(FileContent, RefusesWhatIsNoReadableFile) {
  const TTempDir dir;
  ASSERT_EQ(0, mkfifo(dir.Path("fifo").c_str(), 0600));
  const std::string good = dir.File("good", "text");
  for (const std::string& path : {dir.Path(), dir.Path("fifo"), std::string("/dev/zero"),
                                  std::string("/proc/self/mem"), dir.Path("missing")}) {
    SCOPED_TRACE(path);
    unsigned crc;
    String error;
    EXPECT_EQ(0, GetFileCRC(path.c_str(), &crc, error));
    EXPECT_EQ(path == dir.Path("missing") ? "Cannot open file" : "Read error", ToStd(error));
    EXPECT_EQ(-1, CompareFiles(path.c_str(), good.c_str()));
    EXPECT_EQ(-1, CompareFiles(good.c_str(), path.c_str()));
    if (path == "/proc/self/mem") continue;  // its size of 0 answers the searches
    String text("x");
    EXPECT_EQ(-1, FindStrInFile(path.c_str(), text, 1, 0));
    EXPECT_EQ(-1, FindFileInFile(good.c_str(), path.c_str()));
  }
  String empty;
  EXPECT_EQ(-1, FindStrInFile(good.c_str(), empty, 1, 0));
}

TEST(FileContent, FindsThePatternFile) {
  const TTempDir dir;
  std::string bytes;
  std::minstd_rand random(7);
  while (bytes.size() < 1'500'000) bytes += static_cast<char>(random());
  const std::string file = dir.File("file", bytes);
  const auto find = [&](const std::string& pattern) {
    return FindFileInFile(file.c_str(), dir.File("pattern", pattern).c_str());
  };
  EXPECT_EQ(1, find(""));
  EXPECT_EQ(700'001, find(bytes.substr(700'000, 600'000)));
  EXPECT_EQ(1'499'980, find(bytes.substr(1'499'979)));
  EXPECT_EQ(1, find(bytes));
  EXPECT_EQ(0, find(bytes + "x"));
  EXPECT_EQ(0, find(bytes.substr(700'000, 600'000) + "not there"));
}

/// The search as it is described: windows of three lengths, the last length of each carried over.
bool FindInWindows(const std::string& content, const std::string& text, bool wholeWord) {
  if (text.size() > content.size()) return false;
  const size_t window = std::min(3 * text.size(), content.size() + 1);
  const auto word = [](char c) { return isalnum(static_cast<unsigned char>(c)) != 0; };
  for (size_t start = 0; start < content.size(); start += window - text.size()) {
    const std::string part = content.substr(start, window);
    for (size_t p = part.find(text); p != std::string::npos; p = part.find(text, p + 1)) {
      const size_t after = p + text.size();
      if (!wholeWord) return true;
      if ((p == 0 || !word(part[p - 1])) && (after == part.size() || !word(part[after])))
        return true;
    }
    if (part.size() < window) break;
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
  int found = 0;
  std::string content, path;
  for (int round = 0; round < 3000; ++round) {
    if (round % 30 == 0) path = dir.File(std::to_string(round), content = text(random() % 60));
    const std::string wanted = text(1 + random() % 4);
    const bool caseSensitive = random() % 2 == 0, wholeWord = random() % 2 == 0;
    const auto folded = [&](std::string s) {
      if (!caseSensitive) std::transform(s.begin(), s.end(), s.begin(), LoCase);
      return s;
    };
    const bool expected = FindInWindows(folded(content), folded(wanted), wholeWord);
    found += expected;
    String what = ToString(wanted);
    ASSERT_EQ(expected, FindStrInFile(path.c_str(), what, caseSensitive, wholeWord) > 0)
        << '"' << wanted << "\" in \"" << content << '"' << caseSensitive << wholeWord;
  }
  EXPECT_GT(found, 500);
}

TEST(FileContent, RefusedWordsStayRefusedOverSeveralBuffers) {
  const TTempDir dir;
  std::string bytes;
  while (bytes.size() < 1'200'000) bytes += "cats1";
  String word("cats");
  EXPECT_EQ(0, FindStrInFile(dir.File("f", bytes).c_str(), word, 1, 1));
  const std::string path = dir.File("f", bytes + "-CATS");
  EXPECT_EQ(0, FindStrInFile(path.c_str(), word, 1, 1));
  EXPECT_EQ(static_cast<double>(bytes.size()) + 2, FindStrInFile(path.c_str(), word, 0, 1));
}

}  // namespace
