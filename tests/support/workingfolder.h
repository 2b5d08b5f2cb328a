#pragma once

#include <filesystem>
#include <string>
#include <system_error>

/// Changes the working folder and goes back at the end.
class TWorkingFolder {
 public:
  explicit TWorkingFolder(const std::string& path) : former_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~TWorkingFolder() {
    std::error_code error;
    std::filesystem::current_path(former_, error);
  }
  TWorkingFolder(const TWorkingFolder&) = delete;
  TWorkingFolder& operator=(const TWorkingFolder&) = delete;

 private:
  std::filesystem::path former_;
};
