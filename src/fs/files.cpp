#include "fs/files.h"

#include <errno.h>
#include <fcntl.h>
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

TFd OpenForReading(const char* path) {
  constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  return TFd(static_cast<int>(TEMP_FAILURE_RETRY(open(path, kFlags))));
}

bool IsRegularFile(int fd, struct stat& facts) {
  return fstat(fd, &facts) == 0 && S_ISREG(facts.st_mode);
}

ssize_t ReadFully(int fd, char* buffer, size_t count) {
  size_t done = 0;
  while (done < count) {
    const ssize_t n = TEMP_FAILURE_RETRY(read(fd, buffer + done, count - done));
    if (n == -1) return -1;
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

ssize_t ReadAt(int fd, char* buffer, size_t count, int64_t offset) {
  return TEMP_FAILURE_RETRY(pread(fd, buffer, count, offset));
}

bool WriteFully(int fd, const char* bytes, size_t count) {
  for (size_t done = 0; done < count;) {
    const ssize_t n = TEMP_FAILURE_RETRY(write(fd, bytes + done, count - done));
    if (n == -1) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

TFd CreateFresh(const char* path, mode_t mode) {
  unlink(path);
  return TFd(open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
}
