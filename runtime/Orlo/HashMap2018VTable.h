// What the generic hash map has to know of one map type, and the blocks in which it keeps nodes.
//
// A bucket is one block of memory: `count` 32-bit hashes in ascending order, the header, the nodes in the
// same order. A bucket never changes its count; a change of its members makes another bucket. It has as many
// users as hold on to it: the map and the iterators that walk it. A bucket with one user may have a value
// replaced in place. Buckets belong to their map's thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "runtime/KilnSlab/KilnSlab.h"
#include "runtime/Orlo/AllocTrackTypeInfo.h"

namespace Orlo {

struct HashMap2018BucketHeader {
  static constexpr std::uint32_t kCountShift = 4;
  static constexpr std::uint32_t kMaxCount = (1U << 14) - 1;

  // Bits 4 to 17 hold the count of nodes, so that the shifted and masked word is the size of the hashes in
  // bytes.
  std::uint32_t word;
  std::uint32_t users;

  std::uint32_t count() const { return word >> kCountShift & kMaxCount; }
  std::byte* blockStart() { return reinterpret_cast<std::byte*>(this) - (word >> 2 & 0xFFFC); }
  std::uint32_t* hashes() { return reinterpret_cast<std::uint32_t*>(blockStart()); }
  std::uint32_t const* hashes() const { return const_cast<HashMap2018BucketHeader*>(this)->hashes(); }

  static inline AllocTrackTypeInfo* memAllocationTracker_ = nullptr;
};

struct HashMap2018VTable {
  using Header = HashMap2018BucketHeader;

  std::size_t nodeSize;
  std::size_t nodeAlignment;
  bool (*keyEqualsNode)(void const* key, void const* node);
  // Orders two nodes, or a node and a key, by their keys; 0 when equal.
  int (*compareOrLruUnlink)(void const* node, void const* other, bool otherIsKey);
  // A bucket of `count` nodes with one user, its hashes and nodes still to be placed.
  Header* (*newBucketAssemble)(HashMap2018VTable const& vtable, std::uint32_t count);
  // Gives up one use; the last one frees the bucket.
  void (*bktHdrRefDec)(Header* header);

  std::byte* node(Header* header, std::uint32_t index) const {
    return header->blockStart() + nodesOffset(header->count()) + index * nodeSize;
  }
  std::byte const* node(Header const* header, std::uint32_t index) const {
    return node(const_cast<Header*>(header), index);
  }

  static Header* trivialNewBucketAssemble(HashMap2018VTable const& vtable, std::uint32_t count);
  // Puts one node into its place.
  static void trivialPlace(HashMap2018VTable const& vtable, Header* bucket, std::uint32_t index,
                           std::uint32_t hash, void const* node);
  // Copies `count` nodes of another bucket, from its place `from` on, to the place `to` on.
  static void trivialShift(HashMap2018VTable const& vtable, Header* bucket, std::uint32_t to,
                           Header const* source, std::uint32_t from, std::uint32_t count);
  // True when the use given up was the last; the caller then frees the block.
  static bool bktHdrRefDecHelper(Header* header) { return --header->users == 0; }

  // The functions for nodes of plain data that know their key: `node.fwkKey()`.
  template <class Node, class Key>
  struct Impl;

 private:
  std::size_t nodesOffset(std::uint32_t count) const {
    std::size_t const end = count * sizeof(std::uint32_t) + sizeof(Header);
    return (end + nodeAlignment - 1) & ~(nodeAlignment - 1);
  }
};

template <class Node, class Key>
struct HashMap2018VTable::Impl {
  static_assert(std::is_trivially_copyable_v<Node>);
  static_assert(alignof(Node) <= KilnSlab::kCellAlignment);

  static bool keyEqualsNode(void const* key, void const* node) {
    return static_cast<Node const*>(node)->fwkKey() == *static_cast<Key const*>(key);
  }

  static int compareOrLruUnlink(void const* node, void const* other, bool otherIsKey) {
    auto const order =
        static_cast<Node const*>(node)->fwkKey() <=>
        (otherIsKey ? *static_cast<Key const*>(other) : static_cast<Node const*>(other)->fwkKey());
    return order < 0 ? -1 : order > 0 ? 1 : 0;
  }

  static Header* newBucketAssemble(HashMap2018VTable const& table, std::uint32_t count) {
    Header* const header = trivialNewBucketAssemble(table, count);
    AllocTrackTypeInfo::trackArrayAllocation(&Node::memAllocationTracker_, typeid(Node), sizeof(Node),
                                             alignof(Node), count);
    return header;
  }

  static void bktHdrRefDec(Header* header) {
    if (!bktHdrRefDecHelper(header)) return;
    AllocTrackTypeInfo::trackDeallocation(Header::memAllocationTracker_);
    AllocTrackTypeInfo::trackArrayDeallocation(Node::memAllocationTracker_, header->count());
    KilnSlab::slabFreeOrStdFree(header->blockStart());
  }

  static constexpr HashMap2018VTable vtable{sizeof(Node),       alignof(Node),     keyEqualsNode,
                                            compareOrLruUnlink, newBucketAssemble, bktHdrRefDec};
};

}  // namespace Orlo
