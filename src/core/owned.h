#pragma once

#include <stdio.h>
#include <unistd.h>

#include <memory>
#include <utility>

/// Owns one descriptor: closes it when it goes out of scope. -1 means none.
class TFd {
 public:
  explicit TFd(int fd = -1) : fd_(fd) {}
  ~TFd() { Reset(); }
  TFd(TFd&& other) noexcept : fd_(other.Release()) {}
  TFd& operator=(TFd&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  TFd(const TFd&) = delete;
  TFd& operator=(const TFd&) = delete;

  int Get() const { return fd_; }
  explicit operator bool() const { return fd_ != -1; }
  /// Hands the descriptor on: the caller closes it now.
  int Release() { return std::exchange(fd_, -1); }
  void Reset(int fd = -1) {
    if (fd_ != -1) close(fd_);
    fd_ = fd;
  }

 private:
  int fd_;
};

struct TFileClose {
  void operator()(FILE* file) const { fclose(file); }
};
/// Owns one stdio stream. To see the result of the close, call fclose(file.release()).
using TFile = std::unique_ptr<FILE, TFileClose>;
