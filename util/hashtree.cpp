// The trie. A leaf hangs at the first level where its hash differs from those of its neighbours, so the way to an item
// is as long as the longest agreement with another. Leaves whose hashes agree in bits 31 to 1 form a chain at the
// lowest level, through the child that the last step went to.

#include "util/hashtree.h"

namespace {

constexpr uint32_t TOP_BIT = 31;
constexpr uint32_t LAST_BIT = 1;  // Bit 0 chooses nothing: hashes that agree down to here share a chain.

HASHTREE* CreateNode(OTALLOC* pArena) {
  return static_cast<HASHTREE*>(OTALLOC_Alloc(pArena, sizeof(HASHTREE)));
}

uint32_t BitOf(uint32_t hash, uint32_t bit) {
  return hash >> bit & 1;
}

}  // namespace

HASHTREE* HASHTREE_Create(HASHTREE_HASH_FUNC* pfHash, HASHTREE_COMPARE_FUNC* pfCompare) {
  OTALLOC* pArena = OTALLOC_Create();
  if (pArena == nullptr) {
    return nullptr;
  }
  HASHTREE* pRoot = CreateNode(pArena);  // Always fits the first block.
  pRoot->pfHash = pfHash;
  pRoot->pfCompare = pfCompare;
  pRoot->pArena = pArena;
  return pRoot;
}

void HASHTREE_Add(HASHTREE* pTree, void* pItem) {
  HASHTREE* pLeaf = CreateNode(pTree->pArena);
  if (pLeaf == nullptr) {
    return;
  }
  pLeaf->IsLeaf = 1;
  pLeaf->pItem = pItem;
  pLeaf->Hash = pTree->pfHash(pItem);
  pLeaf->pfHash = pTree->pfHash;
  pLeaf->pfCompare = pTree->pfCompare;

  uint32_t bit = TOP_BIT;
  HASHTREE** ppSlot = &pTree->apChild[BitOf(pLeaf->Hash, bit)];
  while (*ppSlot != nullptr && --bit != 0) {
    HASHTREE* pNode = *ppSlot;
    if (pNode->IsLeaf) {
      HASHTREE* pInner = CreateNode(pTree->pArena);
      if (pInner == nullptr) {
        return;
      }
      pInner->apChild[BitOf(pNode->Hash, bit)] = pNode;
      *ppSlot = pInner;
      pNode = pInner;
    }
    ppSlot = &pNode->apChild[BitOf(pLeaf->Hash, bit)];
  }
  // Either a free slot, or the head of a chain at the lowest level, linked on the side that the last step went to.
  while (*ppSlot != nullptr) {
    ppSlot = &(*ppSlot)->apChild[BitOf(pLeaf->Hash, LAST_BIT)];
  }
  *ppSlot = pLeaf;
}

void* HASHTREE_Find(const HASHTREE* pTree, const void* pKey) {
  const uint32_t hash = pTree->pfHash(pKey);
  uint32_t bit = TOP_BIT;
  const HASHTREE* pNode = pTree->apChild[BitOf(hash, bit)];
  while (pNode != nullptr && !pNode->IsLeaf) {
    bit--;
    pNode = pNode->apChild[BitOf(hash, bit)];
  }
  if (pNode == nullptr || pNode->Hash != hash) {
    return nullptr;
  }
  if (bit != LAST_BIT) {
    return pNode->pItem;
  }
  for (; pNode != nullptr; pNode = pNode->apChild[pNode->apChild[0] == nullptr]) {
    if (pTree->pfCompare(pNode->pItem, pKey) == 0) {
      return pNode->pItem;
    }
  }
  return nullptr;
}

void HASHTREE_Destroy(HASHTREE* pTree) {
  if (pTree != nullptr) {
    OTALLOC_Destroy(pTree->pArena);
  }
}
