#include "agent/cmdline.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <vector>

#include "config/settings.h"

namespace {

const std::string kUsage =
    "\n\n Usage: qov [-d|-i] [-v|-vd] [-p <port>] <cfg_file>\n"
    "  -d        - daemon mode (default)\n"
    "  -i        - interactive mode\n"
    "  -v        - verbose mode\n"
    "  -vd       - verbose debugging mode\n"
    "  -p <port> - overrides TCP port number specified in cfg_file\n"
    "  cfg_file  - obligatory parameter, path to configuration file\n\n"
    " Examples:\n"
    "  qov -i -v -p 1055 /etc/qov/qov.cfg\n"
    "  qov -d ~/qov/qov.cfg\n\n";

void Parse(std::vector<const char*> words) {
  words.insert(words.begin(), "qov");
  ParseCommandLine(static_cast<int>(words.size()), const_cast<char**>(words.data()));
}

TEST(CommandLineTest, TakesItsSwitchesInOneOrder) {
  const std::string longPath(600, 'x');
  const struct {
    std::vector<const char*> words;
    const char* modes;  // interactive, verbose, debug and the port
    std::string file;
  } cases[] = {
      {{"f"}, "000 0", "f"},
      {{"-d", "f", "g"}, "000 0", "f"},
      {{"-i", "-v", "-p", "1055", "f"}, "110 1055", "f"},
      {{"-i", "-vd", "f"}, "111 0", "f"},
      {{"-v", "-vd", "f"}, "011 0", "f"},
      {{"-vd", "-v", "f"}, "011 0", "-v"},
      {{"-i", "-d", "f"}, "100 0", "-d"},
      {{"-v", "-i"}, "010 0", "-i"},
      {{"-p", "65535", "f"}, "000 65535", "f"},
      {{"-p", "-5", "-x"}, "000 -5", "-x"},
      {{longPath.c_str()}, "000 0", longPath.substr(0, 511)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.words));
    QovSettings = TQovSettings();
    Parse(c.words);
    char modes[32];
    snprintf(modes, sizeof modes, "%u%u%u %d", QovSettings.interactive, QovSettings.verbose,
             QovSettings.debug, QovSettings.port);
    EXPECT_EQ(std::string(c.modes), modes);
    EXPECT_EQ(c.file, QovSettings.configfile);
  }
  QovSettings = TQovSettings();
}

TEST(CommandLineDeathTest, EndsWithTheUsage) {
  const std::string missing = "Error\nInvalid or missed command line parameter";
  const std::string port = "Error\nInvalid port number";
  const std::pair<std::vector<const char*>, std::string> cases[] = {
      {{}, missing},
      {{"-i"}, missing},
      {{"-v"}, missing},
      {{"-vd"}, missing},
      {{"-p"}, missing},
      {{"-p", "1"}, missing},
      {{"-p", "0", "f"}, port},
      {{"-p", "65536", "f"}, port},
      {{"-p", "x", "f"}, port},
  };
  for (const auto& [words, error] : cases) {
    SCOPED_TRACE(testing::PrintToString(words));
    const auto say = [&words = words] {
      dup2(STDERR_FILENO, STDOUT_FILENO);  // which is what a death test reads
      Parse(words);
      exit(0);
    };
    EXPECT_EXIT(say(), testing::ExitedWithCode(1), testing::Eq(error + kUsage));
  }
}

}  // namespace
