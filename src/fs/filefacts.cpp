#include "fs/filefacts.h"

#include <sys/stat.h>
#include <unistd.h>

int FileAge(const char* path) {
  struct stat facts;
  return stat(path, &facts) == 0 ? static_cast<int>(facts.st_mtime) : -1;
}

int64_t FileSize(const char* path) {
  struct stat facts;
  return stat(path, &facts) == 0 ? facts.st_size : -1;
}

bool FileExists(const char* path) {
  struct stat facts;
  return stat(path, &facts) == 0 && S_ISREG(facts.st_mode);
}

bool DirectoryExists(const char* path) {
  struct stat facts;
  return stat(path, &facts) == 0 && S_ISDIR(facts.st_mode);
}

bool DeleteFile(const char* path) { return unlink(path) == 0; }
