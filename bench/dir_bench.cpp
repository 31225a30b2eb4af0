// Directories, lines and paths beside the platform's bare calls: listing against readdir and fstatat in a loop,
// counting against readdir alone, creating a path that is there against its status, reading lines byte by byte and
// through stdio (which, unlike the others, leaves the position behind what it has buffered), and splitting beside
// <filesystem>.

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "sys/sys.h"

namespace {

// A directory with so many files, removed at the end.
class FILES {
 public:
  explicit FILES(int64_t numFiles) {
    std::string name = std::filesystem::temp_directory_path() / "nordax.XXXXXX";
    Path = mkdtemp(name.data());
    for (int64_t i = 0; i < numFiles; i++) {
      std::ofstream(Path + "/Provision" + std::to_string(i) + ".pex") << i;
    }
  }
  ~FILES() { std::filesystem::remove_all(Path); }
  FILES(const FILES&) = delete;
  FILES& operator=(const FILES&) = delete;

  std::string Path;
};

void List(benchmark::State& state) {
  const FILES files(state.range(0));
  uint64_t numBytes = 0;
  for (auto _ : state) {
    SYS_DIR_List(files.Path.c_str(), &numBytes, [](const SYS_DIR_ENTRY* pEntry, void* pContext) {
      *static_cast<uint64_t*>(pContext) += pEntry->Size;
      return 0;
    });
  }
  benchmark::DoNotOptimize(numBytes);
}

void ReaddirFstatat(benchmark::State& state) {
  const FILES files(state.range(0));
  uint64_t numBytes = 0;
  for (auto _ : state) {
    DIR* pDir = opendir(files.Path.c_str());
    while (const dirent* pItem = readdir(pDir)) {
      struct stat status;
      if (pItem->d_type == DT_REG && fstatat(dirfd(pDir), pItem->d_name, &status, 0) == 0) {
        numBytes += static_cast<uint64_t>(status.st_size);
      }
    }
    closedir(pDir);
  }
  benchmark::DoNotOptimize(numBytes);
}

BENCHMARK(List)->Arg(10)->Arg(1000);
BENCHMARK(ReaddirFstatat)->Arg(10)->Arg(1000);

void Count(benchmark::State& state) {
  const FILES files(state.range(0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(SYS_DIR_List(files.Path.c_str(), nullptr, nullptr));
  }
}

void Readdir(benchmark::State& state) {
  const FILES files(state.range(0));
  for (auto _ : state) {
    int count = 0;
    DIR* pDir = opendir(files.Path.c_str());
    while (const dirent* pItem = readdir(pDir)) {
      count += pItem->d_type == DT_REG;
    }
    closedir(pDir);
    benchmark::DoNotOptimize(count);
  }
}

BENCHMARK(Count)->Arg(1000);
BENCHMARK(Readdir)->Arg(1000);

void CreatePathThatIsThere(benchmark::State& state) {
  const FILES files(0);
  for (auto _ : state) {
    benchmark::DoNotOptimize(SYS_DIR_CreatePath(files.Path.c_str()));
  }
}

void Stat(benchmark::State& state) {
  const FILES files(0);
  for (auto _ : state) {
    struct stat status;
    benchmark::DoNotOptimize(stat(files.Path.c_str(), &status));
  }
}

BENCHMARK(CreatePathThatIsThere);
BENCHMARK(Stat);

// A file of 100 lines of 60 characters.
std::string MakeLines(const FILES& files) {
  std::string path = files.Path + "/lines";
  std::ofstream stream(path);
  for (int i = 0; i < 100; i++) {
    stream << std::string(59, 'x') << '\n';
  }
  return path;
}

void ReadLine(benchmark::State& state) {
  const FILES files(0);
  const int fd = open(MakeLines(files).c_str(), O_RDONLY);
  char acLine[256];
  for (auto _ : state) {
    lseek(fd, 0, SEEK_SET);
    while (SYS_FILE_ReadLine(fd, acLine, sizeof(acLine)) > 0) {
    }
  }
  close(fd);
}

void ReadBytes(benchmark::State& state) {
  const FILES files(0);
  const int fd = open(MakeLines(files).c_str(), O_RDONLY);
  for (auto _ : state) {
    lseek(fd, 0, SEEK_SET);
    char c;
    while (read(fd, &c, 1) > 0) {
      benchmark::DoNotOptimize(c);
    }
  }
  close(fd);
}

void Fgets(benchmark::State& state) {
  const FILES files(0);
  FILE* pFile = fopen(MakeLines(files).c_str(), "r");
  char acLine[256];
  for (auto _ : state) {
    rewind(pFile);
    while (fgets(acLine, sizeof(acLine), pFile) != nullptr) {
    }
  }
  fclose(pFile);
}

BENCHMARK(ReadLine);
BENCHMARK(ReadBytes);
BENCHMARK(Fgets);

constexpr char PATH[] = "/opt/nordax/bin/Script/Provision.pex";

void SplitPath(benchmark::State& state) {
  char acDir[256];
  char acName[256];
  char acExtension[256];
  for (auto _ : state) {
    SYS_SplitPath(PATH, nullptr, 0, acDir, sizeof(acDir), acName, sizeof(acName), acExtension);
    benchmark::ClobberMemory();
  }
}

void FilesystemPath(benchmark::State& state) {
  for (auto _ : state) {
    const std::filesystem::path path(PATH);
    benchmark::DoNotOptimize(path.parent_path());
    benchmark::DoNotOptimize(path.stem());
    benchmark::DoNotOptimize(path.extension());
  }
}

BENCHMARK(SplitPath);
BENCHMARK(FilesystemPath);

}  // namespace

BENCHMARK_MAIN();
