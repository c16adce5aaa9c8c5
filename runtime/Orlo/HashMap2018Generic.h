// The engine of the local hash maps, one for all types: it moves plain nodes through the functions of a
// vtable. Not safe for threads: a map and its iterators belong to one thread at a time.
//
// 1. The directory's slot for a hash is the hash's highest bits, so slots in ascending order hold hashes in
//    ascending order, and a larger directory splits every slot in place.
// 2. A bucket that an iterator holds is never written: a change puts another one in its slot
//    (HashMap2018VTable.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "runtime/Orlo/HashMap2018VTable.h"

namespace Orlo {

class HashMap2018Generic {
 public:
  using Header = HashMap2018BucketHeader;

  explicit HashMap2018Generic(HashMap2018VTable const& vtable) : vtable_(&vtable) {}
  HashMap2018Generic(HashMap2018Generic const&) = delete;
  HashMap2018Generic& operator=(HashMap2018Generic const&) = delete;
  ~HashMap2018Generic() { emptyAllBuckets(); }

  std::size_t size() const { return size_; }

  // The node of a key, or null. It stays where it is until the next change of the map.
  void const* lookupNodeG(void const* key, std::uint32_t hash) const {
    return lookupNode(hash, [&](void const* node) { return vtable_->keyEqualsNode(key, node); });
  }

  // The same for a caller that can compare keys without a call.
  template <class Equals>
  void const* lookupNode(std::uint32_t hash, Equals&& equals) const {
    Place const found = find(hash, equals);
    return found.bucket == nullptr ? nullptr : vtable_->node(found.bucket, found.index);
  }

  // Adds a node, or puts it in the place of the one with the same key. True if it is a new one. Where memory
  // runs out the exception leaves the map as it was.
  bool newMemberG(void const* key, std::uint32_t hash, void const* node);

  // False where there is no such key.
  bool deleteMemberG(void const* key, std::uint32_t hash);

  // Removes all members. The first keeps the directory at its size, for a map that is filled again.
  void emptyAllBuckets();
  void _memberDelAll();

 private:
  friend class HashMap2018IteratorGeneric;

  static constexpr unsigned kFirstBits = 3;
  static constexpr unsigned kMostBits = 28;
  static constexpr std::size_t kNodesPerSlot = 2;

  std::size_t slotOf(std::uint64_t hash) const { return hash >> (32 - bits_); }
  Header* bucketOf(std::uint32_t hash) const {
    return directory_.empty() ? nullptr : directory_[slotOf(hash)];
  }
  struct Place {
    Header* bucket = nullptr;  // null where there is no such node
    std::uint32_t index = 0;
  };
  template <class Equals>
  Place find(std::uint32_t hash, Equals&& equals) const {
    Header* const bucket = bucketOf(hash);
    if (bucket == nullptr) return {};
    std::uint32_t const count = bucket->count();
    std::uint32_t const* const hashes = bucket->hashes();
    for (std::uint32_t index = 0; index < count; ++index)
      if (hashes[index] == hash && equals(vtable_->node(bucket, index))) return {bucket, index};
    return {};
  }
  bool hasNode(std::uint32_t hash, void const* node) const;
  void bucketIs(std::size_t slot, Header* bucket);
  void replaceNode(Place place, std::uint32_t hash, void const* node);
  void insertNode(std::uint32_t hash, void const* node);
  void grow();
  void split(Header const* bucket, std::size_t slot, unsigned bits, std::vector<Header*>& target) const;
  Header* part(Header const* bucket, std::uint32_t from, std::uint32_t count) const;
  void release(std::vector<Header*>& directory) const;

  HashMap2018VTable const* vtable_;
  std::vector<Header*> directory_;
  unsigned bits_ = 0;
  std::size_t size_ = 0;
  std::uint64_t changes_ = 0;
};

// Walks a map in ascending order of hashes. Under changes of the map in the course of the walk:
// - a member that is there all along is met exactly once, however the directory grows;
// - a member deleted before the walk reached it is not met, one inserted on the way is met once or not at
//   all;
// - a value replaced on the way is met as it is now or as it was when the walk reached its bucket;
// - the node that the iterator stands on stays readable, even deleted, until the next step.
// The map must outlive the iterator.
class HashMap2018IteratorGeneric {
 public:
  explicit HashMap2018IteratorGeneric(HashMap2018Generic const& map);
  HashMap2018IteratorGeneric(HashMap2018IteratorGeneric const& other);
  HashMap2018IteratorGeneric(HashMap2018IteratorGeneric&& other) noexcept;
  HashMap2018IteratorGeneric& operator=(HashMap2018IteratorGeneric other) noexcept;
  ~HashMap2018IteratorGeneric();

  // Null at the end.
  void const* node() const { return bucket_ == nullptr ? nullptr : map_->vtable_->node(bucket_, index_); }
  void inc();

 private:
  bool settle();
  void nextBucket();

  HashMap2018Generic const* map_;
  HashMap2018BucketHeader* bucket_ = nullptr;  // the one walked, held; null at the end
  std::uint32_t index_ = 0;
  std::uint64_t next_ = 0;     // the lowest hash of the buckets still to come
  std::uint64_t changes_ = 0;  // the map's count when the bucket was taken
};

}  // namespace Orlo
