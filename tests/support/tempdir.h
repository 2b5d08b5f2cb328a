#pragma once

#include <string>
#include <string_view>

/// A folder of its own, removed with everything in it at the end. Its path has no '/' at the end.
class TTempDir {
 public:
  TTempDir();
  ~TTempDir();
  TTempDir(const TTempDir&) = delete;
  TTempDir& operator=(const TTempDir&) = delete;

  const std::string& Path() const { return path_; }
  /// Full path of `name` in the folder; nothing is created.
  std::string Path(std::string_view name) const { return path_ + '/' + std::string(name); }
  /// Writes a file, making the folders of `name` where they are missing; returns its full path.
  std::string File(std::string_view name, std::string_view content = "") const;
  /// Makes a folder and those above it; returns its full path.
  std::string Folder(std::string_view name) const;

 private:
  std::string path_;
};

/// The whole content of a file, "" when it cannot be read.
std::string ReadFile(const std::string& path);
