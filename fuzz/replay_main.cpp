// Feeds a fuzz target in place of the fuzzer with each file of a directory, and with random changes of them, the same
// in every run: the seeds and the inputs of mended faults stay a test in every build, with the target as the model.
//
//   TARGET DIRECTORY NUMBER   the number of changed inputs for each file

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t numBytes);

namespace {

using BYTES = std::vector<uint8_t>;

void Change(BYTES& input, std::mt19937& random) {
  const size_t pos = random() % (input.size() + 1);
  const size_t length = std::min<size_t>(random() % 16, input.size() - pos);
  const auto first = input.begin() + static_cast<int64_t>(pos);
  switch (random() % 4) {
    case 0:
      input.erase(first, first + static_cast<int64_t>(length));
      break;
    case 1: {
      const BYTES part(first, first + static_cast<int64_t>(length));
      input.insert(input.begin() + static_cast<int64_t>(random() % (input.size() + 1)), part.begin(), part.end());
      break;
    }
    case 2:
      input.insert(first, static_cast<uint8_t>(random()));
      break;
    default:
      if (length != 0) {
        *first = static_cast<uint8_t>(random());
      }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int numChanged = argc == 3 ? atoi(argv[2]) : 0;
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  std::mt19937 random;
  for (const auto& path : paths) {
    std::ifstream file(path, std::ios::binary);
    BYTES input{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(input.data(), input.size());
    // Each change starts from the one before, and now and then from the file again.
    BYTES changed;
    for (int i = 0; i < numChanged; i++) {
      if (i % 16 == 0) {
        changed = input;
      }
      Change(changed, random);
      LLVMFuzzerTestOneInput(changed.data(), changed.size());
    }
  }
  printf("%zu files, %d changes of each\n", paths.size(), numChanged);
  return paths.empty() ? 1 : 0;
}
