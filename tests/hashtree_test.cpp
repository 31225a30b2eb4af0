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
  return static_cast<int32_t>(static_cast<const ITEM*>(pItem)->Key - static_cast<const ITEM*>(pKey)->Key);
}

struct TREE {
  ~TREE() { HASHTREE_Destroy(pRoot); }

  void Add(const ITEM& item) { HASHTREE_Add(pRoot, &Items.emplace_back(item)); }

  // What a search has to find: the first item that agrees with the key in all bits but the lowest decides whether the
  // search gets to the bottom, where keys are compared if another item agrees in all bits but the lowest two.
  const ITEM* Find(const ITEM& key) const {
    const auto agrees = [&](uint32_t numBits) {
      return [&, numBits](const ITEM& item) { return item.Hash >> numBits == key.Hash >> numBits; };
    };
    auto item = std::find_if(Items.begin(), Items.end(), agrees(1));
    if (item == Items.end() || item->Hash != key.Hash) {
      return nullptr;
    }
    if (std::count_if(Items.begin(), Items.end(), agrees(2)) > 1) {
      item = std::find_if(item, Items.end(), [&](auto& other) { return agrees(1)(other) && other.Key == key.Key; });
    }
    return item == Items.end() ? nullptr : &*item;
  }

  HASHTREE* pRoot = HASHTREE_Create(HashOf, CompareKeys);
  std::deque<ITEM> Items;
};

TEST(HashTree, FindsWhatTheModelFindsWhateverTheHash) {
  static constexpr uint32_t aMask[] = {UINT32_MAX, 0x7, 0x3, 0x1, 0, 0xE0000000, 0x80000003, 0x00010002};
  RANDOM random(1);
  for (int round = 0; round < 300; round++) {
    TREE tree;
    const uint32_t mask = aMask[random.Below(8)];
    const uint32_t pattern = random.Next32() & ~mask;
    const auto randomItem = [&] { return ITEM{(random.Next32() & mask) | pattern, random.Below(6)}; };
    for (uint32_t n = random.Below(40); n > 0; n--) {
      tree.Add(randomItem());
    }
    for (int i = 0; i < 100; i++) {
      ITEM key = tree.Items.empty() || random.OneIn(2) ? randomItem() : tree.Items[random.Below(tree.Items.size())];
      key.Hash ^= random.OneIn(2) ? 1u << random.Below(32) : 0;
      ASSERT_EQ(HASHTREE_Find(tree.pRoot, &key), tree.Find(key)) << std::hex << key.Hash << ' ' << mask;
    }
  }
}

// Inner nodes for bits 31 to 1, then the chain on the side that the last step went to.
TEST(HashTree, ChainsAtTheBottomLevel) {
  constexpr uint32_t HASH = 0x12345672;
  TREE tree;
  tree.Add({HASH, 1});
  tree.Add({HASH, 2});
  const HASHTREE* pNode = tree.pRoot;
  for (uint32_t bit = 31; bit >= 1; bit--) {
    pNode = pNode->apChild[HASH >> bit & 1];
    ASSERT_TRUE(pNode != nullptr && pNode->IsLeaf == (bit == 1));
  }
  EXPECT_TRUE(pNode->pItem == &tree.Items[0] && pNode->pfHash == HashOf && pNode->pfCompare == CompareKeys);
  ASSERT_TRUE(pNode->apChild[1] != nullptr && pNode->apChild[1]->pItem == &tree.Items[1]);
}

// The arena has room for 0, 1, 2 ... nodes and no more: an item is added whole or not at all.
TEST(HashTree, LosesNothingWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [](const SCOPED_FAULT& fault) {
    HASHTREE* pTree = HASHTREE_Create(HashOf, CompareKeys);
    ASSERT_EQ(pTree == nullptr, fault.WasHit());
    HASHTREE_Destroy(pTree);  // Null is ignored.
  });
  bool isAdded = false;
  for (uint32_t numNodes = 0; !isAdded; numNodes++) {
    TREE tree;
    tree.Add({0xCAFE0000, 1});
    tree.Add({0x00000000, 2});
    OTALLOC* pArena = tree.pRoot->pArena;
    OTALLOC_Alloc(pArena, pArena->Capacity - pArena->Used - numNodes * static_cast<uint32_t>(sizeof(HASHTREE)));
    ITEM late = {0xCAFE0010, 3};
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
  }
}

}  // namespace
