#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "built.h"
#include "support/process.h"

namespace {

constexpr char kEngine[] = "/usr/sbin/icinga2";

/// A monitoring engine with a folder of its own, ended by its process id.
class TEngine {
 public:
  explicit TEngine(const std::string& config) {
    folder_.File("icinga2.conf", config);
    std::vector<std::string> words = {kEngine, "daemon", "-c", folder_.Path("icinga2.conf")};
    for (const char* part : {"Data", "Log", "Cache", "Spool", "InitRun"}) {
      words.push_back(std::string("-DConfiguration.") + part + "Dir=" + folder_.Folder(part));
    }
    for (const char* file : {"Pid", "Vars", "Objects", "State"}) {
      words.push_back(std::string("-DConfiguration.") + file + "Path=" + folder_.Path(file));
    }
    words.push_back("-DConfiguration.RunAsUser=root");
    words.push_back("-DConfiguration.RunAsGroup=root");
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, folder_.Path("out").c_str(), O_WRONLY | O_CREAT,
                                     0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    posix_spawn(&pid_, kEngine, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
  }
  ~TEngine() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);  // lets it end its own workers
    const long long end = NowMs() + 20000;
    while (waitpid(pid_, nullptr, WNOHANG) == 0) {
      if (NowMs() > end) kill(pid_, SIGKILL);
      usleep(10000);
    }
  }

  /// The first service results that it wrote, "" when none came in time.
  std::string AwaitResults(const std::string& folder) const {
    const long long end = NowMs() + 60000;
    while (NowMs() < end) {
      for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string text = ReadFile(entry.path());
        if (!text.empty()) return text;
      }
      usleep(50000);
    }
    ADD_FAILURE() << ReadFile(folder_.Path("out"));
    return "";
  }

 private:
  const TTempDir folder_;
  pid_t pid_ = -1;
};

}  // namespace

TEST(EngineTest, RunsACheckThroughTheShippedDefinitions) {
  if (access(kEngine, X_OK) != 0) GTEST_SKIP() << "no monitoring engine: " << kEngine;
  if (geteuid() != 0) GTEST_SKIP() << "the engine is started as root";
  const TAgentProcess agent;
  const std::string client = QOV_CLIENT;
  const std::string results = agent.Folder().Folder("results");
  const TEngine engine(
      "const PluginDir = \"" + client.substr(0, client.rfind('/')) + "\"\n" +
      "include \"" QOV_SOURCE_DIR
      "/packaging/examples/icinga2-qov.conf\"\n"
      "object CheckerComponent \"checker\" { }\n"
      "object PerfdataWriter \"results\" {\n  rotation_interval = 1s\n"
      "  service_perfdata_path = \"" +
      results +
      "/service\"\n"
      "  service_temp_path = \"" +
      agent.Folder().Path("service.tmp") +
      "\"\n"
      "  host_perfdata_path = \"" +
      agent.Folder().Path("host") +
      "\"\n"
      "  host_temp_path = \"" +
      agent.Folder().Path("host.tmp") +
      "\"\n"
      "  service_format_template = \"$service.state$ $service.output$ $service.perfdata$\"\n}\n"
      "object Host \"web\" {\n  address = \"127.0.0.1\"\n  check_command = \"qov-info\"\n"
      "  vars.qov_port = " +
      std::to_string(agent.Port()) + "\n  vars.qov_password_file = \"" +
      agent.Folder().File("password", TAgentProcess::kPassword) +
      "\"\n}\n"
      "object Service \"disk\" {\n  host_name = \"web\"\n  check_command = \"qov-disk\"\n"
      "  check_interval = 1s\n  vars.qov_path = \"/\"\n  vars.qov_metric = \"used_pct\"\n"
      "  vars.qov_warning = \"~:-1\"\n}\n");
  const std::string text = engine.AwaitResults(results);
  EXPECT_THAT(text, testing::StartsWith("WARNING DISK WARNING: used_pct "));
  EXPECT_THAT(text, testing::HasSubstr(" used_pct="));
}
