#include "support/tempdir.h"

#include <stdio.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "core/owned.h"

namespace fs = std::filesystem;

TTempDir::TTempDir() : path_(fs::temp_directory_path() / "qovtest-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) throw fs::filesystem_error("mkdtemp", path_, {});
}

TTempDir::~TTempDir() {
  std::error_code error;
  fs::remove_all(path_, error);
}

std::string TTempDir::File(std::string_view name, std::string_view content) const {
  const std::string path = Path(name);
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

std::string TTempDir::Folder(std::string_view name) const {
  const std::string path = Path(name);
  fs::create_directories(path);
  return path;
}

std::string ReadFile(const std::string& path) {
  std::string content;
  const TFile file(fopen(path.c_str(), "re"));
  char block[65536];
  // What belongs to a process that ends meanwhile (a file of /proc) just ends.
  for (size_t n; file && (n = fread(block, 1, sizeof block, file.get())) > 0;) {
    content.append(block, n);
  }
  return content;
}
