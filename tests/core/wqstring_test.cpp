#include "core/wqstring.h"

#include <gtest/gtest.h>
#include <limits.h>

#include <tuple>
#include <utility>

#include "support/text.h"

TEST(StringTest, SizesItsBufferByTheStep) {
  for (const auto& [bytes, capacity] : {std::pair(1, 128), {127, 128}, {128, 256}, {256, 384}}) {
    EXPECT_EQ(capacity, ToString(std::string(static_cast<size_t>(bytes), 'x')).Capacity()) << bytes;
  }
  String s("0123456789");
  s.SetLength(128);
  EXPECT_EQ(256, s.Capacity());
  EXPECT_EQ(std::string("0123456789") + std::string(118, '\0'), ToStd(s));
  s = "";
  EXPECT_EQ(256, s.Capacity());
  s = String();
  EXPECT_EQ(nullptr, s.Data()) << "assigning an empty string releases the buffer";
}

TEST(StringTest, FixedStringCutsWhatDoesNotFitAndACopyGrows) {
  String s(8);
  s = "0123456789";
  s += "ab";
  s += 'c';
  EXPECT_EQ("01234567", s);
  EXPECT_EQ(136, s.SetZero().Capacity());
  String moved(std::move(s));
  moved += "89";
  EXPECT_EQ("0123456789", moved);
  moved = ToString(std::string(100, 'x'));
  moved += moved;
  moved.AddData(moved.Data() + 50, 100);  // its own bytes across a growth
  EXPECT_EQ(std::string(300, 'x'), ToStd(moved));
}

TEST(StringTest, SearchesWithOptions) {
  const std::tuple<const char*, const char*, int, int, int> cases[] = {
      {"concat cat", "cat", 1, 1, 8}, {"a cat", "CAT", 0, 0, 3},    {"a cat", "CAT", 1, 0, 0},
      {"cats", "cat", 1, 1, 0},       {"cat9 cat", "cat", 1, 1, 6}, {"_cat_", "cat", 1, 1, 2},
      {"aaa-aa", "aa", 1, 1, 5},      {"abc", "", 1, 0, 0},         {"\xC9x", "\xE9X", 0, 0, 0},
  };
  for (const auto& [text, what, caseSensitive, wholeWord, position] : cases) {
    EXPECT_EQ(position, String(text).Search(what, caseSensitive, wholeWord)) << text << what;
  }
}

// Deliberate: RemoveRepeats keeps two at the start, ReplaceAll a remainder that is one occurrence;
// bytes above 127 are blank, being negative.
TEST(StringTest, TakesAndChangesParts) {
  const std::pair<const char*, String> cases[] = {
      {"bcd", String("abcd").Copy(2, INT_MAX)},
      {"", String("abcd").Copy(5, 1)},
      {"", String("a,,c").GetWord(2, ',')},
      {"c", String("a,,c").GetWord(3, ',')},
      {"a", String("a,,c").GetWord(0, ',')},
      {"", String("a,b,").GetWord(3, ',')},
      {"", String("a,b").GetWord(3, ',')},
      {"a\xE9z", String(" \t\xE9\x61\xE9z\x80\n").Trim()},
      {"a b", String("a   b").RemoveRepeats(' ')},
      {"a ", String("a  ").RemoveRepeats(' ')},
      {"  x", String("   x").RemoveRepeats(' ')},
      {"ab", String("ab").ReplaceAll("ab", "X", 1)},
      {"Xc", String("abc").ReplaceAll("ab", "X", 1)},
      {"xXab", String("xabab").ReplaceAll("ab", "X", 1)},
      {"xX", String("xab").ReplaceAll("AB", "X", 0)},
      {"abc", String("abc").ReplaceAll("", "X", 1)}};
  for (const auto& [expected, result] : cases) EXPECT_EQ(expected, result);
  const std::tuple<int, int, const char*> deletes[] = {
      {0, 1, "abcd"}, {5, 1, "abcd"}, {3, 9, "ab"}};
  for (const auto& [start, count, left] : deletes) {
    String s("abcd");
    s.Delete(start, count);
    EXPECT_EQ(left, s);
  }
  EXPECT_EQ(128, String("   ").Trim().Capacity());
  char buf[] = "-------";
  EXPECT_STREQ("abc", String("abcdef").StrCpy(buf, 4));
  EXPECT_STREQ("abc", String().StrCpy(buf, 4)) << "an empty string leaves the buffer untouched";
}

TEST(StringTest, RecognisesNumbersWithAnAsymmetryForMinus) {
  EXPECT_TRUE(isdecimalnum("-1-2") && isdecimalnum(""));
  EXPECT_FALSE(isdecimalnum("1.5") || isdecimalnum("-12", 3));
}

TEST(StringTest, FindsBytesAsASimpleSearchDoes) {
  unsigned seed = 1;
  const auto next = [&seed](unsigned bound) {
    seed = seed * 1103515245 + 12345;
    return (seed >> 16) % bound;
  };
  for (int round = 0; round < 5000; ++round) {
    std::string buf(next(200), '\0'), pat(next(4), '\0');
    for (char& c : buf) c = "aAbB\xC9"[next(5)];
    for (char& c : pat) c = "aAbB\xE9"[next(5)];
    const int len = static_cast<int>(buf.size()), plen = static_cast<int>(pat.size());
    const auto expected = pat.empty() ? 0 : static_cast<int>(buf.find(pat) + 1);
    ASSERT_EQ(expected, mempos(buf.data(), len, pat.data(), plen)) << buf << ' ' << pat;
    strlower(buf.data(), len);
    const std::string lower = ToStd(ToString(pat).LowerCase());
    const auto folded = pat.empty() ? 0 : static_cast<int>(buf.find(lower) + 1);
    strupper(buf.data(), static_cast<int>(next(200)) % (len + 1));
    ASSERT_EQ(folded, memposi(buf.data(), len, pat.data(), plen)) << buf << ' ' << pat;
  }
}

TEST(StrListTest, GrowsAndDeletes) {
  TStrList list;
  for (int i = 0; i < 129; ++i) list.Add(i == 1 ? String() : String(std::to_string(i).c_str()));
  EXPECT_EQ(256, list.Capacity());
  list.Delete(0);
  list.DeleteLast();
  const TStrList copy(list);
  list.Clear();
  EXPECT_EQ(127, copy.Count());
  EXPECT_EQ("", copy[0]);
  EXPECT_EQ("127", copy[126]);
}

TEST(StrListDeathTest, AbortsOnAnIndexOutsideTheList) {
  TStrList list;
  EXPECT_DEATH(list[0], "wqstring:495: String TStrList::operator\\[\\]\\(int\\)");
  EXPECT_DEATH(list.DeleteLast(), "wqstring:471: void TStrList::Delete\\(int\\)");
}
