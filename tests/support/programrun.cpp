#include "support/programrun.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/rawpeer.h"
#include "support/tempdir.h"

static void RunChild(const TTempDir& folder, const std::vector<std::string>& words,
                     const std::vector<std::string>& environment) {
  const char* const files[] = {"/dev/null", "out", "err"};
  for (int fd = 0; fd < 3; ++fd) {
    const std::string path = fd == 0 ? files[0] : folder.Path(files[fd]);
    const int opened = open(path.c_str(), fd == 0 ? O_RDONLY : O_WRONLY | O_CREAT, 0600);
    if (dup2(opened, fd) == -1) _exit(127);
    close(opened);
  }
  for (const std::string& entry : environment) putenv(const_cast<char*>(entry.c_str()));
  std::vector<char*> argv;
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  execv(argv[0], argv.data());
  _exit(127);
}

TProgramRun RunProgram(const std::vector<std::string>& words,
                       const std::vector<std::string>& environment) {
  constexpr int kLimitMs = 60000;
  const TTempDir folder;
  const pid_t pid = fork();
  if (pid == 0) RunChild(folder, words, environment);
  TProgramRun run;
  int status = 0;
  const long long end = NowMs() + kLimitMs;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (NowMs() > end) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      return run;
    }
    usleep(2000);
  }
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  run.out = ReadFile(folder.Path("out"));
  run.err = ReadFile(folder.Path("err"));
  return run;
}
