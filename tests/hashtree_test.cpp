// The tree against a model that knows the rules of a search but no trie, and its shape where the rules fix it.

#include "util/hashtree.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <deque>

#include "tests/faults.h"
#include "tests/support.h"

namespace {

struct ITEM {
  uint32_t Hash;
  uint32_t Key;
};

uint32_t HashOf(const void* pItem) {
  return static_cast<const ITEM*>(pItem)->Hash;
}

int32_t CompareKeys(const void* pItem, const void* pKey) {
  return static_cast<const ITEM*>(pItem)->Key == static_cast<const ITEM*>(pKey)->Key ? 0 : -5;
}

class TREE {
 public:
  ~TREE() { HASHTREE_Destroy(pRoot); }

  void Add(const ITEM& item) { HASHTREE_Add(pRoot, &Items.emplace_back(item)); }

  // What a search has to find among all items that were added.
  const ITEM* Find(const ITEM& key) const {
    std::deque<const ITEM*> chain;  // Items that agree with the key in all bits but the lowest.
    bool hasNeighbour = false;  // Others that agree in all but the lowest two keep even a single item at the bottom.
    for (const ITEM& item : Items) {
      if (item.Hash >> 1 == key.Hash >> 1) {
        chain.push_back(&item);
      } else if (item.Hash >> 2 == key.Hash >> 2) {
        hasNeighbour = true;
      }
    }
    if (chain.empty() || chain[0]->Hash != key.Hash) {
      return nullptr;
    }
    if (chain.size() == 1 && !hasNeighbour) {
      return chain[0];
    }
    for (const ITEM* pItem : chain) {
      if (pItem->Key == key.Key) {
        return pItem;
      }
    }
    return nullptr;
  }

  HASHTREE* pRoot = HASHTREE_Create(HashOf, CompareKeys);
  std::deque<ITEM> Items;
};

TEST(HashTree, FindsWhatTheModelFindsWhateverTheHash) {
  static constexpr uint32_t aMask[] = {UINT32_MAX, 0x7, 0x3, 0x1, 0, 0xE0000000, 0x80000003, 0x00010002, 0xFF};
  RANDOM random(1);
  for (int round = 0; round < 300; round++) {
    TREE tree;
    const uint32_t mask = aMask[random.Below(9)];
    const uint32_t pattern = random.Next32() & ~mask;
    auto randomItem = [&] { return ITEM{(random.Next32() & mask) | pattern, random.Below(6)}; };
    for (uint32_t n = random.Below(40); n > 0; n--) {
      tree.Add(randomItem());
    }
    for (int i = 0; i < 100; i++) {
      const ITEM key =
          tree.Items.empty() || random.OneIn(2) ? randomItem() : tree.Items[random.Below(tree.Items.size())];
      ASSERT_EQ(HASHTREE_Find(tree.pRoot, &key), tree.Find(key)) << std::hex << key.Hash << ' ' << mask;
      const ITEM stranger = {key.Hash ^ 1u << random.Below(32), key.Key};
      ASSERT_EQ(HASHTREE_Find(tree.pRoot, &stranger), tree.Find(stranger)) << std::hex << stranger.Hash;
    }
  }
}

// Inner nodes for bits 31 to 1, then the chain on the side that the last step went to.
TEST(HashTree, ChainsAtTheBottomLevel) {
  for (uint32_t hash : {0x12345678u, 0xFFFFFFFFu, 0x00000001u, 0x80000002u}) {
    TREE tree;
    for (uint32_t key = 0; key < 4; key++) {
      tree.Add({hash ^ key % 2, key});
    }
    const HASHTREE* pNode = tree.pRoot;
    for (uint32_t bit = 31; bit >= 1; bit--) {
      ASSERT_EQ(pNode->IsLeaf, 0u);
      ASSERT_EQ(pNode->apChild[~hash >> bit & 1], nullptr);
      pNode = pNode->apChild[hash >> bit & 1];
      ASSERT_NE(pNode, nullptr);
    }
    for (ITEM& item : tree.Items) {
      ASSERT_NE(pNode, nullptr);
      EXPECT_TRUE(pNode->IsLeaf == 1 && pNode->pItem == &item && pNode->Hash == item.Hash);
      EXPECT_TRUE(pNode->pfHash == HashOf && pNode->pfCompare == CompareKeys);
      EXPECT_EQ(pNode->apChild[~hash >> 1 & 1], nullptr);
      pNode = pNode->apChild[hash >> 1 & 1];
    }
    EXPECT_EQ(pNode, nullptr);
  }
}

// The arena has room for 0, 1, 2 ... nodes and no more: an item is added whole or not at all.
TEST(HashTree, LosesNothingWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  for (uint32_t numNodes = 0;; numNodes++) {
    TREE tree;
    tree.Add({0xCAFE0000, 1});
    tree.Add({0x00000000, 2});
    OTALLOC* pArena = tree.pRoot->pArena;
    const uint32_t room = numNodes * static_cast<uint32_t>(sizeof(HASHTREE));
    ASSERT_NE(OTALLOC_Alloc(pArena, pArena->Capacity - pArena->Used - room), nullptr);
    ITEM late = {0xCAFE0010, 3};
    bool isAdded;
    {
      SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM, UINT32_MAX});
      HASHTREE_Add(tree.pRoot, &late);
      isAdded = !fault.WasHit();
    }
    EXPECT_EQ(HASHTREE_Find(tree.pRoot, &late), isAdded ? &late : nullptr) << numNodes;
    tree.Add({0xCAFE0010, 4});
    for (const ITEM& item : tree.Items) {
      EXPECT_EQ(HASHTREE_Find(tree.pRoot, &item), &item) << numNodes;
    }
    if (isAdded) {
      EXPECT_EQ(numNodes, 28u) << "a leaf, and an inner node for each bit from 30 on in which two hashes agree";
      return;
    }
  }
}

TEST(HashTree, IsCreatedOrNot) {
  FAULTS_REQUIRE();
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [](const SCOPED_FAULT& fault) {
    HASHTREE* pTree = HASHTREE_Create(HashOf, CompareKeys);
    ASSERT_EQ(pTree == nullptr, fault.WasHit());
    HASHTREE_Destroy(pTree);  // Null is ignored.
  });
}

}  // namespace
