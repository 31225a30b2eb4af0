// Splitting, composing and joining of paths: the parts of a path make it up again, whatever fits is right and nothing
// else is written. Three bytes of the input give sizes, the rest is a path and, behind a zero byte, a relative one.

#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "fuzz/input.h"
#include "sys/sys_path.h"

namespace {

// A buffer of exactly that size, so that the sanitizer sees the first byte behind it.
struct BUFFER {
  explicit BUFFER(uint32_t size) : Size(size), pBytes(std::make_unique<char[]>(size)) {
    memset(pBytes.get(), '?', size);
  }
  operator char*() { return pBytes.get(); }
  // Whether it holds as much of the text as fits.
  bool Holds(const std::string& text) { return Size == 0 || std::string(pBytes.get()) == text.substr(0, Size - 1); }
  bool HoldsWholeOrNothing(const std::string& text) { return Holds(text.size() < Size ? text : ""); }

  const uint32_t Size;
  std::unique_ptr<char[]> pBytes;
};

struct PARTS {
  std::string Dir;
  std::string Name;
  std::string Extension;
};

// The last dot of the name that has a character of it on its left begins the extension.
PARTS SplitModel(const std::string& path) {
  PARTS parts;
  for (char c : path) {
    if (c == '/') {
      parts.Dir += parts.Name + parts.Extension + c;
      parts.Name.clear();
      parts.Extension.clear();
    } else if (c == '.' && !(parts.Name + parts.Extension).empty()) {
      parts.Name += parts.Extension;
      parts.Extension = c;
    } else {
      (parts.Extension.empty() ? parts.Name : parts.Extension) += c;
    }
  }
  return parts;
}

void CheckSplitting(const std::string& path, const PARTS& parts, uint32_t dirSize, uint32_t nameSize) {
  BUFFER drive(1);
  BUFFER dir(dirSize);
  BUFFER name(nameSize);
  BUFFER extension(nameSize != 0 ? nameSize : static_cast<uint32_t>(path.size()) + 1);
  SYS_SplitPath(path.c_str(), drive, 0, dir, dirSize, name, nameSize, extension);
  FUZZ_EXPECT(drive.Holds("") && dir.Holds(parts.Dir) && name.Holds(parts.Name) && extension.Holds(parts.Extension));
  SYS_GetFileBaseName(path.c_str(), name, nameSize);
  FUZZ_EXPECT(name.HoldsWholeOrNothing(parts.Name));
  BUFFER whole(nameSize);
  SYS_GetFileExtension(path.c_str(), whole, nameSize);
  FUZZ_EXPECT(whole.HoldsWholeOrNothing(parts.Extension));
  // Each part in turn over the path itself.
  const auto size = static_cast<uint32_t>(path.size()) + 1;
  for (int i = 0; i < 3; i++) {
    BUFFER copy(size);
    memcpy(copy, path.c_str(), size);
    char* pCopy = copy;
    SYS_SplitPath(pCopy, nullptr, 0, i == 0 ? pCopy : nullptr, size, i == 1 ? pCopy : nullptr, size,
                  i == 2 ? pCopy : nullptr);
    FUZZ_EXPECT(copy.Holds(i == 0 ? parts.Dir : i == 1 ? parts.Name : parts.Extension));
  }
}

void CheckJoining(const std::string& base, const std::string& relative, uint32_t size) {
  std::string expected = relative;
  if (!relative.empty() && relative[0] != '/') {
    struct stat status;
    const bool isFile = stat(base.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(base.c_str(), R_OK) == 0;
    expected.insert(0, isFile ? base.substr(0, base.rfind('/') + 1) : base);
  }
  BUFFER joined(size);
  SYS_JoinPath(base.c_str(), relative.c_str(), joined, size);
  expected.resize(size == 0 ? 0 : size - 1);
  FUZZ_EXPECT(size == 0 || std::string(joined, size) == expected + '\0');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t numBytes) {
  if (numBytes < 3) {
    return 0;
  }
  const std::string text(reinterpret_cast<const char*>(pData) + 3, numBytes - 3);
  const std::string path = text.c_str();
  const std::string relative = text.substr(std::min(path.size() + 1, text.size())).c_str();
  const PARTS parts = SplitModel(path);
  CheckSplitting(path, parts, pData[0], pData[1]);
  CheckSplitting(path, parts, static_cast<uint32_t>(path.size()) + 1, static_cast<uint32_t>(path.size()) + 1);

  for (uint32_t size : {uint32_t{pData[2]}, static_cast<uint32_t>(path.size()) + 1}) {
    BUFFER made(size);
    SYS_MakePath(made, size, nullptr, parts.Dir.c_str(), parts.Name.c_str(),
                 parts.Extension.empty() ? nullptr : parts.Extension.c_str());
    FUZZ_EXPECT(made.Holds(path));
    CheckJoining(path, relative, size);
  }
  CheckJoining(parts.Dir, relative, pData[2]);
  return 0;
}
