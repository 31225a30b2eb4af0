// Feeds a fuzz target with each file of a directory, in place of the fuzzer: the seeds and the inputs of mended faults
// stay a test in every build.

#include <stdint.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t numBytes);

int main(int argc, char** argv) {
  int numInputs = 0;
  for (int i = 1; i < argc; i++) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::vector<char> input{std::istreambuf_iterator<char>(file), {}};
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
      numInputs++;
    }
  }
  printf("%d inputs\n", numInputs);
  return numInputs == 0;
}
