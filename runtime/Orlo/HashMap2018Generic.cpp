#include "runtime/Orlo/HashMap2018Generic.h"

#include <algorithm>
#include <utility>

namespace Orlo {

using Header = HashMap2018BucketHeader;
using VTable = HashMap2018VTable;

bool HashMap2018Generic::hasNode(std::uint32_t hash, void const* node) const {
  auto const isNode = [&](void const* other) { return vtable_->compareOrLruUnlink(other, node, false) == 0; };
  return find(hash, isNode).bucket != nullptr;
}

void HashMap2018Generic::bucketIs(std::size_t slot, Header* bucket) {
  Header* const before = std::exchange(directory_[slot], bucket);
  if (before != nullptr) vtable_->bktHdrRefDec(before);
  ++changes_;
}

bool HashMap2018Generic::newMemberG(void const* key, std::uint32_t hash, void const* node) {
  Place const known = find(hash, [&](void const* other) { return vtable_->keyEqualsNode(key, other); });
  if (known.bucket != nullptr) {
    replaceNode(known, hash, node);
    return false;
  }
  if (size_ >= directory_.size() * kNodesPerSlot && bits_ < kMostBits) grow();
  insertNode(hash, node);
  ++size_;
  return true;
}

void HashMap2018Generic::replaceNode(Place place, std::uint32_t hash, void const* node) {
  if (place.bucket->users == 1) return VTable::trivialPlace(*vtable_, place.bucket, place.index, hash, node);
  Header* const copy = part(place.bucket, 0, place.bucket->count());
  VTable::trivialPlace(*vtable_, copy, place.index, hash, node);
  bucketIs(slotOf(hash), copy);
}

void HashMap2018Generic::insertNode(std::uint32_t hash, void const* node) {
  std::size_t const slot = slotOf(hash);
  Header const* const old = directory_[slot];
  std::uint32_t const count = old == nullptr ? 0 : old->count();
  Header* const bucket = vtable_->newBucketAssemble(*vtable_, count + 1);
  std::uint32_t at = 0;
  if (old != nullptr) {
    at = static_cast<std::uint32_t>(std::upper_bound(old->hashes(), old->hashes() + count, hash) -
                                    old->hashes());
    VTable::trivialShift(*vtable_, bucket, 0, old, 0, at);
    VTable::trivialShift(*vtable_, bucket, at + 1, old, at, count - at);
  }
  VTable::trivialPlace(*vtable_, bucket, at, hash, node);
  bucketIs(slot, bucket);
}

bool HashMap2018Generic::deleteMemberG(void const* key, std::uint32_t hash) {
  auto const [bucket, index] =
      find(hash, [&](void const* node) { return vtable_->keyEqualsNode(key, node); });
  if (bucket == nullptr) return false;
  std::uint32_t const count = bucket->count();
  Header* rest = nullptr;
  if (count > 1) {
    rest = vtable_->newBucketAssemble(*vtable_, count - 1);
    VTable::trivialShift(*vtable_, rest, 0, bucket, 0, index);
    VTable::trivialShift(*vtable_, rest, index, bucket, index + 1, count - index - 1);
  }
  bucketIs(slotOf(hash), rest);
  --size_;
  return true;
}

void HashMap2018Generic::release(std::vector<Header*>& directory) const {
  for (Header*& bucket : directory)
    if (Header* const old = std::exchange(bucket, nullptr); old != nullptr) vtable_->bktHdrRefDec(old);
}

void HashMap2018Generic::emptyAllBuckets() {
  release(directory_);
  size_ = 0;
  ++changes_;
}

void HashMap2018Generic::_memberDelAll() {
  emptyAllBuckets();
  directory_ = {};
  bits_ = 0;
}

Header* HashMap2018Generic::part(Header const* bucket, std::uint32_t from, std::uint32_t count) const {
  if (count == 0) return nullptr;
  Header* const copy = vtable_->newBucketAssemble(*vtable_, count);
  VTable::trivialShift(*vtable_, copy, 0, bucket, from, count);
  return copy;
}

void HashMap2018Generic::split(Header const* bucket, std::size_t slot, unsigned bits,
                               std::vector<Header*>& target) const {
  if (bucket == nullptr) return;
  std::uint32_t const count = bucket->count();
  std::uint64_t const middle = std::uint64_t{2 * slot + 1} << (32 - bits);
  std::uint32_t lower = 0;
  while (lower < count && bucket->hashes()[lower] < middle) ++lower;
  target[2 * slot] = part(bucket, 0, lower);
  target[2 * slot + 1] = part(bucket, lower, count - lower);
}

void HashMap2018Generic::grow() {
  unsigned const bits = directory_.empty() ? kFirstBits : bits_ + 1;
  std::vector<Header*> larger(std::size_t{1} << bits, nullptr);
  try {
    for (std::size_t slot = 0; slot < directory_.size(); ++slot) split(directory_[slot], slot, bits, larger);
  } catch (...) {
    release(larger);
    throw;
  }
  directory_.swap(larger);
  release(larger);
  bits_ = bits;
  ++changes_;
}

HashMap2018IteratorGeneric::HashMap2018IteratorGeneric(HashMap2018Generic const& map) : map_(&map) {
  nextBucket();
}

HashMap2018IteratorGeneric::HashMap2018IteratorGeneric(HashMap2018IteratorGeneric const& other)
    : map_(other.map_),
      bucket_(other.bucket_),
      index_(other.index_),
      next_(other.next_),
      changes_(other.changes_) {
  if (bucket_ != nullptr) ++bucket_->users;
}

HashMap2018IteratorGeneric::HashMap2018IteratorGeneric(HashMap2018IteratorGeneric&& other) noexcept
    : map_(other.map_),
      bucket_(std::exchange(other.bucket_, nullptr)),
      index_(other.index_),
      next_(other.next_),
      changes_(other.changes_) {}

HashMap2018IteratorGeneric& HashMap2018IteratorGeneric::operator=(HashMap2018IteratorGeneric other) noexcept {
  map_ = other.map_;
  std::swap(bucket_, other.bucket_);
  index_ = other.index_;
  next_ = other.next_;
  changes_ = other.changes_;
  return *this;
}

HashMap2018IteratorGeneric::~HashMap2018IteratorGeneric() {
  if (bucket_ != nullptr) map_->vtable_->bktHdrRefDec(bucket_);
}

void HashMap2018IteratorGeneric::inc() {
  ++index_;
  if (!settle()) nextBucket();
}

// Moves on to the next node of the held bucket that is still a member; false if there is none.
bool HashMap2018IteratorGeneric::settle() {
  for (; index_ < bucket_->count(); ++index_)
    if (changes_ == map_->changes_ || map_->hasNode(bucket_->hashes()[index_], node())) return true;
  return false;
}

void HashMap2018IteratorGeneric::nextBucket() {
  if (bucket_ != nullptr) map_->vtable_->bktHdrRefDec(std::exchange(bucket_, nullptr));
  while (!map_->directory_.empty() && next_ >> 32 == 0) {
    std::uint64_t const from = next_;
    std::size_t const slot = map_->slotOf(from);
    next_ = std::uint64_t{slot + 1} << (32 - map_->bits_);
    Header* const bucket = map_->directory_[slot];
    if (bucket == nullptr) continue;
    // A directory that has become smaller in between holds hashes in this bucket that were met already.
    index_ = static_cast<std::uint32_t>(
        std::lower_bound(bucket->hashes(), bucket->hashes() + bucket->count(), from) - bucket->hashes());
    if (index_ == bucket->count()) continue;
    bucket_ = bucket;
    ++bucket_->users;
    changes_ = map_->changes_;
    return;
  }
}

}  // namespace Orlo
