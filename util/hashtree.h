#ifndef UTIL_HASHTREE_H
#define UTIL_HASHTREE_H

// Items found by their key: a binary trie over a 32-bit hash of each item.
//
// The user supplies the hash and the comparison; both see records of one kind, so that a key is looked up with a record
// that has its key fields filled. The tree keeps pointers: items are the user's, must stay where they are and must keep
// their hash while the tree lives. Nodes lie in an arena of the tree's own. Items are never removed. Pointers must not
// be null except where said otherwise, and a tree belongs to one thread at a time.

#include <stdint.h>

#include "util/otalloc.h"

#ifdef __cplusplus
extern "C" {
#endif

// Returns the hash of an item or key.
typedef uint32_t HASHTREE_HASH_FUNC(const void* pItem);

// Compares an item of the tree with a key: 0 when they are equal.
typedef int32_t HASHTREE_COMPARE_FUNC(const void* pItem, const void* pKey);

// A node; the handle of a tree is its root, an inner node. A node at level k chooses its child by bit 31 - k of the
// hash.
typedef struct HASHTREE HASHTREE;
struct HASHTREE {
  uint32_t IsLeaf;                   // 1 when the node holds an item, 0 for an inner node.
  void* pItem;                       // The user's item; leaves only.
  uint32_t Hash;                     // Hash of the item; leaves only.
  HASHTREE_HASH_FUNC* pfHash;        // The user's callbacks; root and leaves.
  HASHTREE_COMPARE_FUNC* pfCompare;  //
  OTALLOC* pArena;                   // Arena of all nodes; root only.
  HASHTREE* apChild[2];  // Inner node: subtrees for hash bit 0 and 1. Leaf at the lowest level: next in its chain.
};

// Creates an empty tree. Returns null when memory is exhausted.
HASHTREE* HASHTREE_Create(HASHTREE_HASH_FUNC* pfHash, HASHTREE_COMPARE_FUNC* pfCompare);

// Adds an item, also when one with an equal key is there: HASHTREE_Find says which one is found then. When memory is
// exhausted the item is not added, and everything else stays as it was.
void HASHTREE_Add(HASHTREE* pTree, void* pItem);

// Returns the item with the hash of the key, or null. The comparison is asked only among items whose hashes agree in
// bits 31 to 1: elsewhere an equal hash counts as an equal key. Among those, items are found whose hash is that of the
// one added first: use a hash function that spreads names over all bits.
void* HASHTREE_Find(const HASHTREE* pTree, const void* pKey);

// Frees the tree, not its items; null is ignored.
void HASHTREE_Destroy(HASHTREE* pTree);

#ifdef __cplusplus
}
#endif

#endif
