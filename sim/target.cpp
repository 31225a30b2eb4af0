// The microcontroller at the other end of the cable, with a flash that outlives the process in a plain file: what a
// script wrote can be looked at with any hex viewer, at file offset = address - start of the flash.
//
// The image is written in place, a whole sector with each write and flushed at the end. A sector lies within one page
// of the file, so a process that is killed leaves every sector whole, old or new, as hardware does; a file that is too
// short, be it new or cut off while it was made, counts as erased from there on. Renaming a new file over the old one
// would be whole beyond one sector, but needs a second file for the lock: here the image itself is locked from the
// first access until the probe is closed, so that no two processes ever share one. Every serial number and module has
// an image of its own.

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sim/sim.h"

namespace {

constexpr int32_t TIF_JTAG = 0;
constexpr int32_t TIF_SWD = 1;
constexpr int32_t TIF_NONE = -1;
constexpr uint32_t ID_JTAG = 0x4BA00477;
constexpr uint32_t ID_SWD = 0x2BA01477;
constexpr uint8_t ERASED = 0xFF;

struct TARGET {
  bool IsAttached = false;
  uint32_t SerialNumber = 0;
  int32_t Module = TARGET_NO_MODULE;
  int32_t Tif = TIF_NONE;
  int ImageFile = -1;  // Open, and the flash loaded, from the first access on.
  char acImagePath[480] = "";
};

TARGET target;
uint8_t aFlash[TARGET_FLASH_SIZE_BYTES];  // What the image file holds, while it is open.

const char* FileError(const char* action, const char* path) {
  return SIM_Text("cannot %s %s: %s", action, path, strerror(errno));
}

// The directory that nobody chose has a name that others can guess: it is used only when it is ours alone.
const char* MakePrivateDirectory(char* pDir, size_t size) {
  const char* parent = getenv("TMPDIR");
  parent = parent != nullptr && parent[0] != 0 ? parent : "/tmp";
  const int length = snprintf(pDir, size, "%s/nordax-sim-%u", parent, static_cast<unsigned>(geteuid()));
  if (length < 0 || static_cast<size_t>(length) >= size) {
    return "the path in TMPDIR is too long";
  }
  struct stat info;
  if ((mkdir(pDir, 0700) != 0 && errno != EEXIST) || lstat(pDir, &info) != 0) {
    return FileError("create", pDir);
  }
  if (!S_ISDIR(info.st_mode) || info.st_uid != geteuid() || (info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return SIM_Text("%s is not a directory of this user alone; set NORDAX_SIM_FLASH to another one", pDir);
  }
  return nullptr;
}

const char* LocateImage() {
  char acDir[400];
  const char* chosen = getenv("NORDAX_SIM_FLASH");
  if (chosen == nullptr || chosen[0] == 0) {
    const char* error = MakePrivateDirectory(acDir, sizeof(acDir));
    if (error != nullptr) {
      return error;
    }
  } else {
    if (strlen(chosen) >= sizeof(acDir)) {
      return "the path in NORDAX_SIM_FLASH is too long";
    }
    snprintf(acDir, sizeof(acDir), "%s", chosen);
    if (mkdir(acDir, 0777) != 0 && errno != EEXIST) {
      return FileError("create", acDir);
    }
  }
  char acModule[16] = "";
  if (target.Module != TARGET_NO_MODULE) {
    snprintf(acModule, sizeof(acModule), "-%d", target.Module);
  }
  snprintf(target.acImagePath, sizeof(target.acImagePath), "%s/flash-%u%s.bin", acDir, target.SerialNumber, acModule);
  return nullptr;
}

// Writes the sectors that hold the given bytes of the flash.
const char* SaveSectors(int file, uint64_t offset, uint64_t numBytes) {
  const uint64_t end = offset + numBytes;
  for (offset -= offset % TARGET_SECTOR_SIZE_BYTES; offset < end; offset += TARGET_SECTOR_SIZE_BYTES) {
    errno = ENOSPC;  // What a short write means.
    const ssize_t n = pwrite(file, aFlash + offset, TARGET_SECTOR_SIZE_BYTES, static_cast<off_t>(offset));
    if (n != static_cast<ssize_t>(TARGET_SECTOR_SIZE_BYTES)) {
      return FileError("write", target.acImagePath);
    }
  }
  return fsync(file) == 0 ? nullptr : FileError("flush", target.acImagePath);
}

const char* LoadImage(int file) {
  struct stat info;
  if (flock(file, LOCK_EX | LOCK_NB) != 0) {
    return errno == EWOULDBLOCK ? SIM_Text("%s is in use by another process", target.acImagePath)
                                : FileError("lock", target.acImagePath);
  }
  if (fstat(file, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > TARGET_FLASH_SIZE_BYTES) {
    return SIM_Text("%s is no flash image of %u bytes", target.acImagePath, TARGET_FLASH_SIZE_BYTES);
  }
  memset(aFlash, ERASED, sizeof(aFlash));
  if (pread(file, aFlash, sizeof(aFlash), 0) != static_cast<ssize_t>(info.st_size)) {
    return FileError("read", target.acImagePath);
  }
  return info.st_size == TARGET_FLASH_SIZE_BYTES ? nullptr : SaveSectors(file, 0, TARGET_FLASH_SIZE_BYTES);
}

// The lowest descriptors are those of the standard streams, also when whoever started the program has closed them: an
// image there would take in whatever the program prints.
int OpenAboveStandardStreams(const char* path) {
  const int file = open(path, O_RDWR | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666);
  if (file < 0 || file > STDERR_FILENO) {
    return file;
  }
  const int moved = fcntl(file, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int reason = errno;
  close(file);
  errno = reason;
  return moved;
}

const char* OpenImage() {
  const char* error = LocateImage();
  if (error != nullptr) {
    return error;
  }
  const int file = OpenAboveStandardStreams(target.acImagePath);
  if (file < 0) {
    return FileError("open", target.acImagePath);
  }
  error = LoadImage(file);
  if (error != nullptr) {
    close(file);
    return error;
  }
  target.ImageFile = file;
  SIM_Trace(SIM_Text("Flash image: %s", target.acImagePath));
  return nullptr;
}

void CloseImage() {
  if (target.ImageFile >= 0) {
    close(target.ImageFile);
    target.ImageFile = -1;
  }
}

const char* AccessTarget() {
  if (!target.IsAttached) {
    return "no probe is open";
  }
  return target.Tif == TIF_NONE ? "no target interface is selected" : nullptr;
}

const char* AccessFlash(uint64_t addr, uint64_t numBytes, uint32_t unit) {
  const char* error = AccessTarget();
  if (error != nullptr) {
    return error;
  }
  const uint64_t offset = addr - TARGET_FLASH_BASE;  // Wraps round below the flash, and is then too large as well.
  if (offset > TARGET_FLASH_SIZE_BYTES || numBytes > TARGET_FLASH_SIZE_BYTES - offset) {
    return SIM_Text("%llu bytes at 0x%08llX are outside the flash, which has %u bytes at 0x%08X",
                    static_cast<unsigned long long>(numBytes), static_cast<unsigned long long>(addr),
                    TARGET_FLASH_SIZE_BYTES, TARGET_FLASH_BASE);
  }
  if (offset % unit != 0 || numBytes % unit != 0) {
    return SIM_Text("%llu bytes at 0x%08llX: address and size must be multiples of %u",
                    static_cast<unsigned long long>(numBytes), static_cast<unsigned long long>(addr), unit);
  }
  return target.ImageFile >= 0 ? nullptr : OpenImage();
}

// After a failure the next access starts again from what the file really holds.
const char* Commit(uint64_t addr, uint64_t numBytes) {
  const char* error = SaveSectors(target.ImageFile, addr - TARGET_FLASH_BASE, numBytes);
  if (error != nullptr) {
    CloseImage();
  }
  return error;
}

}  // namespace

void TARGET_Attach(uint32_t serialNumber, int32_t module) {
  target = TARGET();
  target.IsAttached = true;
  target.SerialNumber = serialNumber;
  target.Module = module;
}

void TARGET_Detach() {
  CloseImage();
  target = TARGET();
}

const char* TARGET_SelectInterface(int32_t tif) {
  if (tif != TIF_JTAG && tif != TIF_SWD) {
    return SIM_Text("Target %s has no interface %d, only JTAG (%d) and SWD (%d)", TARGET_NAME, tif, TIF_JTAG, TIF_SWD);
  }
  target.Tif = tif;
  return nullptr;
}

const char* TARGET_ReadId(uint32_t* pId) {
  const char* error = AccessTarget();
  if (error == nullptr) {
    *pId = target.Tif == TIF_JTAG ? ID_JTAG : ID_SWD;
  }
  return error;
}

const char* TARGET_Erase(uint64_t addr, uint64_t numBytes) {
  const char* error = AccessFlash(addr, numBytes, TARGET_SECTOR_SIZE_BYTES);
  if (error != nullptr) {
    return error;
  }
  memset(aFlash + (addr - TARGET_FLASH_BASE), ERASED, numBytes);
  return Commit(addr, numBytes);
}

const char* TARGET_Write(uint64_t addr, const void* pData, uint64_t numBytes) {
  const char* error = AccessFlash(addr, numBytes, TARGET_WRITE_UNIT_BYTES);
  if (error != nullptr) {
    return error;
  }
  const uint8_t* pByte = static_cast<const uint8_t*>(pData);
  uint8_t* pFlash = aFlash + (addr - TARGET_FLASH_BASE);
  for (uint64_t i = 0; i < numBytes; i++) {
    if ((pFlash[i] & pByte[i]) != pByte[i]) {
      return SIM_Text("the flash at 0x%08llX is not erased", static_cast<unsigned long long>(addr + i));
    }
  }
  memcpy(pFlash, pByte, numBytes);
  return Commit(addr, numBytes);
}

const char* TARGET_Read(uint64_t addr, uint64_t numBytes, const uint8_t** ppData) {
  const char* error = AccessFlash(addr, numBytes, 1);
  if (error == nullptr) {
    *ppData = aFlash + (addr - TARGET_FLASH_BASE);
  }
  return error;
}
