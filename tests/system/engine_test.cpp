#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "built.h"
#include "support/process.h"

TEST(EngineTest, RunsACheckThroughTheShippedDefinitions) {
  const std::string engine = "/usr/sbin/icinga2";
  if (access(engine.c_str(), X_OK) != 0) GTEST_SKIP() << "no monitoring engine: " << engine;
  if (geteuid() != 0) GTEST_SKIP() << "the engine is started as root";
  const TAgentProcess agent;
  const TTempDir folder;
  folder.File("password", kPassword);
  const std::string names = "const F = \"" + folder.Path() + "\"\nconst PluginDir = \"" +
                            std::filesystem::path(QOV_CLIENT).parent_path().string() +
                            "\"\nconst Port = " + std::to_string(agent.port) + "\n";
  folder.File("engine.conf",
              names + "include \"" QOV_SOURCE_DIR "/packaging/examples/icinga2-qov.conf\"" + R"(
object CheckerComponent "checker" { }
object PerfdataWriter "results" {
  rotation_interval = 1s
  service_perfdata_path = F + "/results"
  service_temp_path = F + "/service.tmp"
  host_perfdata_path = F + "/host"
  host_temp_path = F + "/host.tmp"
  service_format_template = "$service.state$ $service.output$ $service.perfdata$"
}
object Host "web" {
  address = "127.0.0.1"
  check_command = "qov-info"
  vars.qov_port = Port
  vars.qov_password_file = F + "/password"
}
object Service "disk" {
  host_name = "web"
  check_command = "qov-disk"
  check_interval = 1s
  vars.qov_path = "/"
  vars.qov_metric = "used_pct"
  vars.qov_warning = "~:-1"
}
)");
  std::string line = "exec " + engine + " daemon -c " + folder.Path("engine.conf");
  for (const char* part : {"DataDir", "LogDir", "CacheDir", "SpoolDir", "InitRunDir", "PidPath",
                           "VarsPath", "ObjectsPath", "StatePath"}) {
    line += std::string(" -DConfiguration.") + part + "=" + folder.Path(part);
    if (std::string(part).find("Dir") != std::string::npos) folder.Folder(part);
  }
  TProcess running(line + " -DConfiguration.RunAsUser=root -DConfiguration.RunAsGroup=root >" +
                   folder.Path("out") + " 2>&1");
  std::string text;
  const auto written = [&] {
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
      if (entry.path().filename().string().rfind("results", 0) == 0) text = ReadFile(entry.path());
    }
    return !text.empty();
  };
  EXPECT_TRUE(Await(written, 60000)) << ReadFile(folder.Path("out"));
  EXPECT_THAT(text, testing::StartsWith("WARNING DISK WARNING: used_pct "));
  EXPECT_THAT(text, testing::HasSubstr(" used_pct="));
  kill(running.Pid(), SIGTERM);  // lets it end its own workers
  running.Wait();
}
