#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>

/// Sets an environment variable (null: unsets it) and restores it at the end.
class TEnvironment {
 public:
  TEnvironment(const char* name, const char* value) : name_(name) {
    if (const char* old = getenv(name)) old_ = old;
    Put(value);
  }
  ~TEnvironment() { Put(old_ ? old_->c_str() : nullptr); }
  TEnvironment(const TEnvironment&) = delete;
  TEnvironment& operator=(const TEnvironment&) = delete;

 private:
  void Put(const char* value) {
    if (value == nullptr) {
      unsetenv(name_);
    } else {
      setenv(name_, value, 1);
    }
  }

  const char* name_;
  std::optional<std::string> old_;
};

/// Changes the working folder and goes back at the end.
class TWorkingFolder {
 public:
  explicit TWorkingFolder(const std::string& path) : old_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~TWorkingFolder() {
    std::error_code error;
    std::filesystem::current_path(old_, error);
  }
  TWorkingFolder(const TWorkingFolder&) = delete;
  TWorkingFolder& operator=(const TWorkingFolder&) = delete;

 private:
  std::filesystem::path old_;
};
