// Runs a fuzz target on every file of the folders named as arguments.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz.h"

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::string bytes{std::istreambuf_iterator<char>(file), {}};
      printf("%s\n", entry.path().c_str());
      fflush(stdout);
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
      ++count;
    }
  }
  if (count == 0) fprintf(stderr, "no files found\n");
  return count == 0 ? 1 : 0;
}
