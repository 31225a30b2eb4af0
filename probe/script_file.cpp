// Owns the map of retired script names: built on its first use and kept for the rest of the run, which is why it is
// never destroyed. Where memory does not suffice for the map, names stay as they are.

#include "probe/script_file.h"

#include "sys/sys.h"
#include "util/hashtree.h"
#include "util/strings.h"

namespace {

// The name comes first: it is what the map's callbacks look at.
struct RENAMED_SCRIPT {
  const char* pName;
  const char* pSuccessor;
};

RENAMED_SCRIPT aRenamed[] = {
    {"PCode_Tamsel_ST_STM32F74_F75.pex", "PCode_Tamsel_ST_STM32F72_F73_F74_F75.pex"},
    {"PCode_Tamsel_TI_CC2744_PG2_HSM.pex", "PCode_Tamsel_TI_CC2745_PG2_HSM.pex"},
};

HASHTREE* pRenameMap;

int32_t CompareNames(const void* pItem, const void* pKey) {
  return UTIL_IsEqualKeyNoCase(pItem, pKey) ? 0 : 1;
}

const HASHTREE* RequireRenameMap() {
  if (pRenameMap == nullptr) {
    pRenameMap = HASHTREE_Create(UTIL_HashKeyNoCase, CompareNames);
    if (pRenameMap != nullptr) {
      for (RENAMED_SCRIPT& entry : aRenamed) {
        HASHTREE_Add(pRenameMap, &entry);
      }
    }
  }
  return pRenameMap;
}

const char* FindSuccessor(const char* name) {
  const HASHTREE* pMap = RequireRenameMap();
  if (pMap == nullptr) {
    return nullptr;
  }
  const RENAMED_SCRIPT key = {name, nullptr};
  const auto* pEntry = static_cast<const RENAMED_SCRIPT*>(HASHTREE_Find(pMap, &key));
  // Away from the lowest level the map takes an equal hash for an equal name; a name of the user's may have any hash.
  return pEntry != nullptr && CompareNames(pEntry, &key) == 0 ? pEntry->pSuccessor : nullptr;
}

}  // namespace

void SCRIPT_ResolveFile(char* acName, char* acPath) {
  if (const char* pSuccessor = FindSuccessor(acName); pSuccessor != nullptr) {
    UTIL_CopyString(acName, pSuccessor, SCRIPT_PATH_BYTES);
  }
  char acDir[SCRIPT_PATH_BYTES];
  SYS_GetExeDir(acDir, sizeof(acDir));
  UTIL_AppendString(acDir, "Script/", sizeof(acDir));
  SYS_JoinPath(acDir, acName, acPath, SCRIPT_PATH_BYTES);
}
