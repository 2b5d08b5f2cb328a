#include "client/scanstate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/scopes.h"

static const TCommand& Log() { return *FindCommand("text-log"); }
static const TGiven kGiven = {{"FILE", "/l"}, {"--find", "two\nlines"}};

TEST(ScanStateTest, IsReplacedWholeAndOpenToItsOwnerOnly) {
  const TTempDir folder;
  const std::string path = folder.File("state", "");
  std::filesystem::remove(path);
  const std::string watch = WatchIdentity({.host = "h", .port = 1}, Log(), kGiven);
  TScanState state;
  LoadScanState(path, watch, state);
  EXPECT_EQ("0", state.size) << "a watch begins without a file";

  SaveScanState(path, watch, {"-1", "12345678901234567890", "7"});
  SaveScanState(path, watch, {"15", "16", "17"});
  LoadScanState(path, watch, state);
  EXPECT_EQ("15 16 17", state.position + ' ' + state.size + ' ' + state.time);
  struct stat facts = {};
  ASSERT_EQ(0, stat(path.c_str(), &facts));
  EXPECT_EQ(0600u, facts.st_mode & 07777);
  EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(folder.Path()), {}))
      << "nothing else is left in the folder";
}

TEST(ScanStateTest, IsRefusedWhenDamagedOrOfAnotherWatch) {
  const TTempDir folder;
  const std::string path = folder.Path("state");
  const std::string watch = WatchIdentity({.host = "h", .port = 1}, Log(), kGiven);
  SaveScanState(path, watch, {"1", "2", "3"});
  const std::string good = ReadFile(path);
  TScanState state;
  for (const std::string& bad :
       {std::string(), good.substr(0, good.size() / 2), "x" + good, good.substr(0, good.size() - 2),
        std::string(good).replace(good.find("position 1"), 10, "position x")}) {
    folder.File("state", bad);
    EXPECT_THROW(LoadScanState(path, watch, state), TUsageFailure) << bad;
  }
  folder.File("state", good);
  TGiven other = kGiven;
  other["--find"] = "another";
  EXPECT_THROW(LoadScanState(path, WatchIdentity({.host = "h", .port = 1}, Log(), other), state),
               TUsageFailure);
  EXPECT_EQ("0", state.position);
  other = kGiven;
  PutScanState({"8", "8", "8"}, other);
  LoadScanState(path, WatchIdentity({.host = "h", .port = 1}, Log(), other), state);
  EXPECT_EQ("1", state.position) << "the state is no part of what identifies a watch";
}

TEST(ScanStateTest, IsNotWrittenIntoAFolderThatIsMissing) {
  EXPECT_THROW(SaveScanState("/nonexistent/state", "w", {}), TUsageFailure);
}

TEST(ScanStateTest, IsReadFromReplies) {
  const TScanState state =
      ReadScanState(Log(), {"200", {"5", "a line", "0", "    10", "    20", "  1000", "    20"}});
  EXPECT_EQ("10 20 1000", state.position + ' ' + state.size + ' ' + state.time);
  EXPECT_THROW(ReadScanState(Log(), {"200", {"5", "a line", "0", "x", "20", "1000", "20"}}),
               TSilence);
}
