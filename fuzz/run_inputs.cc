// Runs a fuzz target over kept inputs: every file of the folders given, in the order of their names. Exit
// status 0 when there were any and none failed.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    std::error_code error;
    for (const auto& file : std::filesystem::directory_iterator(argv[i], error)) files.push_back(file.path());
    if (error) {
      std::fprintf(stderr, "%s: %s\n", argv[i], error.message().c_str());
      return 2;
    }
  }
  std::sort(files.begin(), files.end());
  for (const auto& file : files) {
    std::printf("%s\n", file.c_str());
    std::fflush(stdout);  // a failure ends the program: its input is the last one named
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(stream), {});
    // A copy of exactly its size, so that a byte too far is seen by the sanitizer.
    const std::vector<uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::printf("%zu inputs\n", files.size());
  return files.empty() ? 1 : 0;
}
