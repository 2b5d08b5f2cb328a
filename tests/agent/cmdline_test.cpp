#include "agent/cmdline.h"

#include "support/scopes.h"

/// Parses the words; tells the modes, the port and the file on standard error, the faults too.
static void Parse(std::string line) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  std::vector<const char*> words = {"qov"};
  for (char* word = strtok(line.data(), " "); word != nullptr; word = strtok(nullptr, " "))
    words.push_back(word);
  ParseCommandLine(static_cast<int>(words.size()), const_cast<char**>(words.data()));
  fprintf(stderr, "%u%u%u %d %s", QovSettings.interactive, QovSettings.verbose, QovSettings.debug,
          QovSettings.port, QovSettings.configfile);
  exit(0);
}

TEST(CommandLineDeathTest, TakesItsSwitchesInOneOrder) {
  const std::string usage =
      "\n\n Usage: qov [-d|-i] [-v|-vd] [-p <port>] <cfg_file>\n"
      "  -d        - daemon mode (default)\n  -i        - interactive mode\n"
      "  -v        - verbose mode\n  -vd       - verbose debugging mode\n"
      "  -p <port> - overrides TCP port number specified in cfg_file\n"
      "  cfg_file  - obligatory parameter, path to configuration file\n\n"
      " Examples:\n  qov -i -v -p 1055 /etc/qov/qov.cfg\n  qov -d ~/qov/qov.cfg\n\n";
  const std::string missing = "Error\nInvalid or missed command line parameter" + usage;
  const std::string port = "Error\nInvalid port number" + usage;
  const std::string longPath(600, 'x'), cut = "000 0 " + longPath.substr(0, 511);
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {missing, {"", "-i", "-v"}},      {missing, {"-vd", "-p", "-p 1"}},
      {port, {"-p 0 f", "-p 65536 f"}}, {cut, {longPath}},
      {"000 0 f", {"f", "-d f g"}},     {"110 1055 f", {"-i -v -p 1055 f"}},
      {"111 0 f", {"-i -vd f"}},        {"011 0 f", {"-v -vd f"}},
      {"011 0 -v", {"-vd -v f"}},       {"100 0 -d", {"-i -d f"}},
      {"000 65535 f", {"-p 65535 f"}},  {"000 -5 -x", {"-p -5 -x"}}};
  for (const auto& [said, lines] : cases)
    for (const std::string& line : lines)
      EXPECT_EXIT(Parse(line), testing::ExitedWithCode(said[0] == 'E'), testing::Eq(said));
}
