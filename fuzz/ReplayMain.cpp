// Runs a fuzzer on the files and directories given as arguments. It needs no libFuzzer, so any compiler does.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void Replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  std::printf("%s\n", path.c_str());
  std::fflush(stdout);  // the last name printed is the input that failed
  // A copy of exactly this size, so that a sanitizer notices a read beyond its end.
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argc; ++i) {
    if (std::filesystem::is_directory(argv[i])) {
      for (const auto& entry : std::filesystem::directory_iterator(argv[i])) inputs.push_back(entry.path());
    } else {
      inputs.emplace_back(argv[i]);
    }
  }
  std::ranges::sort(inputs);
  for (const auto& input : inputs) Replay(input);
  std::printf("%zu inputs\n", inputs.size());
  return inputs.empty() ? 1 : 0;
}
