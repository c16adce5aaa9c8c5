#include "Vault/StoreCheck.h"

#include <optional>

#include "runtime/Dovel/Format.h"

namespace Vault {
namespace {

using VaultCore::BucketTable;
using VaultCore::reverseBits;

class Check {
 public:
  Check(SlotsImage const& slots, BucketsImage const& buckets, SharedMem::EmberId generation,
        StoredType const* type)
      : slots_(slots), buckets_(buckets), generation_(generation), type_(type) {}

  StoreReport run() {
    checkSlotsHeader();
    checkBucketsHeader();
    if (slotsReadable_ && bucketsReadable_) {
      marks_.assign(slots_.slots(), false);
      bool const whole = walkRecords();
      marks_.assign(slots_.slots(), false);
      if (walkFreeList() && whole) checkSum();
    }
    return std::move(report_);
  }

 private:
  template <class... Args>
  bool fail(Dovel::FormatText<std::type_identity_t<Args>...> format, Args const&... args) {
    report_.problems.push_back(Dovel::fmtracestr(false, nullptr, "", "", 0, format, args...));
    return false;
  }

  void checkSlotsHeader() {
    FileImage const& file = slots_.file();
    if (!file.problem().empty()) {
      fail("slots: {}", file.problem());
      return;
    }
    if (file.size() < SlotTable::kCommonHeaderSize) {
      fail("slots: bad header file size: {} wanted:{}", file.size(), SlotTable::kCommonHeaderSize);
      return;
    }
    bool const ours = slots_.magic() == SlotTable::kMagic &&
                      slots_.headerSize() == SlotTable::kCommonHeaderSize &&
                      slots_.formatVersion() == SlotTable::kFormatVersion;
    if (!ours) {
      fail("slots: not a slot file: magic:{:#010x} header size:{} format:{}, wanted {:#010x} {} {}",
           slots_.magic(), slots_.headerSize(), slots_.formatVersion(), SlotTable::kMagic,
           SlotTable::kCommonHeaderSize, SlotTable::kFormatVersion);
      return;
    }
    slotsReadable_ = checkShape() && checkCounts() && checkExtent();
    checkType();
    checkGeneration();
    if ((slots_.runtimeFlags() & SlotTable::kInCriticalSection) != 0)
      fail("bad critical section runtimeFlags:{:x}", slots_.runtimeFlags());
  }

  bool checkShape() {
    if (!slots_.hasShape())
      return fail("slots: bad sizes: value:{} slot:{}", slots_.valueSize(), slots_.slotSize());
    if (slots_.marshalledSize() != slots_.valueSize())
      return fail("slots: bad marshalled size:{} wanted:{}", slots_.marshalledSize(), slots_.valueSize());
    if (slots_.capacity() == 0 || slots_.capacity() > kMaxSlots)
      return fail("slots: bad capacity:{} wanted: 1 to {}", slots_.capacity(), kMaxSlots);
    if (slots_.maximumSize() == 0) return fail("slots: bad maximum size:0");
    return true;
  }

  bool checkCounts() {
    if (slots_.watermark() % SlotLink::kChange != 0)
      return fail("slots: bad sequence watermark:{}, not a multiple of {}", slots_.watermark(),
                  SlotLink::kChange);
    std::uint32_t const count = slots_.numSlots().count;
    if (count == 0 || count > kMaxSlots)
      return fail("slots: bad numSlots:{} wanted: 1 to {}", count, kMaxSlots);
    return true;
  }

  bool checkExtent() {
    FileImage const& file = slots_.file();
    if (file.size() < slots_.fullHeaderSize())
      return fail("slots: bad header file size: {} wanted:{}", file.size(), slots_.fullHeaderSize());
    if (file.size() < slots_.wantedSize())
      return fail("slots: bad shmem size:{} wanted:{} for {} slots", file.size(), slots_.wantedSize(),
                  slots_.numSlots().count);
    if (slots_.slots() != slots_.numSlots().count) return fail("slots: was cut while it was read");
    return true;
  }

  void checkType() {
    if (slots_.typeName().size() == SlotTable::kTypeNameSize) fail("slots: the type name has no end");
    if (type_ == nullptr) return;
    if (slots_.typeName() != type_->typeName)
      fail("slots: holds {}, not {}", slots_.typeName(), type_->typeName);
    if (slots_.hasShape() && slots_.valueSize() != type_->valueSize) {
      fail("slots: bad value size:{}, {} has {}", slots_.valueSize(), type_->typeName, type_->valueSize);
      type_ = nullptr;
    }
  }

  void checkGeneration() {
    if (generation_ == SharedMem::EmberId())
      fail("the generation is 0: the store was never completed, or is being replaced");
    if (slots_.generation() != generation_)
      fail("slots: mismatching ember:{}, oldEmber:{}", generation_, slots_.generation());
  }

  void checkBucketsHeader() {
    FileImage const& file = buckets_.file();
    if (!file.problem().empty()) {
      fail("buckets: {}", file.problem());
      return;
    }
    if (file.size() < BucketTable::kHeaderSize) {
      fail("buckets: bad header file size: {} wanted:{}", file.size(), BucketTable::kHeaderSize);
      return;
    }
    if (buckets_.magic() != BucketTable::kMagic || buckets_.elementSize() != BucketTable::kElementSize) {
      fail("buckets: not a bucket file: magic:{:#010x} element size:{}, wanted {:#010x} {}", buckets_.magic(),
           buckets_.elementSize(), BucketTable::kMagic, BucketTable::kElementSize);
      return;
    }
    if (buckets_.generation() != generation_)
      fail("buckets: mismatching ember:{}, oldEmber:{}", generation_, buckets_.generation());
    bucketsReadable_ = checkBucketCount();
  }

  bool checkBucketCount() {
    std::uint32_t const count = buckets_.numBuckets().count;
    if (count == 0 || (count & (count - 1)) != 0 || count > BucketTable::kMaxBuckets)
      return fail("buckets: bad numBuckets:{}, not a power of two", count);
    if (buckets_.file().size() < buckets_.wantedSize())
      return fail("buckets: bad shmem size:{} wanted:{} for {} buckets", buckets_.file().size(),
                  buckets_.wantedSize(), count);
    if (buckets_.buckets() != count) return fail("buckets: was cut while it was read");
    return true;
  }

  // The whole list, bucket by bucket in the order of iteration.
  bool walkRecords() {
    std::uint32_t bucket = 0;
    while (bucket != BucketTable::kNoBucket) {
      std::optional<SlotLink> const end = walkChain(bucket);
      if (!end || !checkEnd(bucket, *end)) return false;
      bucket = BucketTable::nextBucket(bucket, buckets_.bits());
    }
    if (occupied_ != slots_.occupiedSlots())
      return fail("bad occupiedSlots:{}, {} records are on chains", slots_.occupiedSlots(), occupied_);
    return true;
  }

  // The link that ends the bucket's chain.
  std::optional<SlotLink> walkChain(std::uint32_t bucket) {
    SlotLink link = buckets_.head(bucket);
    std::uint32_t previous = SlotLink::kNil;
    while (link.leadsToSlot()) {
      std::uint32_t const id = link.id();
      if (!checkRecord(id, bucket) || !checkOrder(previous, id)) return std::nullopt;
      previous = id;
      link = slots_.link(id);
    }
    return link;
  }

  bool checkRecord(std::uint32_t id, std::uint32_t bucket) {
    if (id >= slots_.slots()) return fail("bucket {}: out-of-range index: {} max:{}", bucket, id, maxIndex());
    if (marks_[id]) return fail("slot {} is on the chains twice", id);
    marks_[id] = true;
    SlotLink const link = slots_.link(id);
    if (!link.occupied()) return fail("slot {} is on the chain of bucket {}, but not occupied", id, bucket);
    if (link.inLookaside()) return fail("slot {} is stuck in the lookaside slot", id);
    if (++occupied_ > slots_.occupiedSlots())
      return fail("more records are on chains than occupiedSlots:{}", slots_.occupiedSlots());
    std::uint32_t const hash = slots_.hash(id);
    if (buckets_.bucketOf(hash) != bucket)
      return fail("slot {} is in bucket {}, its hash {:#010x} belongs in {}", id, bucket, hash,
                  buckets_.bucketOf(hash));
    return checkHash(id, hash);
  }

  bool checkHash(std::uint32_t id, std::uint32_t hash) {
    if (type_ == nullptr) return true;
    std::uint32_t const computed = reverseBits(type_->keyHash(slots_.value(id), slots_.hashSeed()));
    if (hash == computed) return true;
    return fail("slot {} holds the hash {:#010x}, its key has {:#010x}", id, hash, computed);
  }

  bool checkOrder(std::uint32_t previous, std::uint32_t id) {
    if (previous == SlotLink::kNil) return true;
    std::uint32_t const before = slots_.hash(previous);
    std::uint32_t const after = slots_.hash(id);
    if (before < after) return true;
    if (before > after)
      return fail("slot {} stands before slot {} against the order of hashes", previous, id);
    if (type_ == nullptr) return true;
    auto const order = type_->compareKeys(slots_.value(previous), slots_.value(id));
    if (order < 0) return true;
    if (order == 0) return fail("slots {} and {} hold the same key", previous, id);
    return fail("slot {} stands before slot {} against the order of keys", previous, id);
  }

  bool checkEnd(std::uint32_t bucket, SlotLink end) {
    std::uint32_t const next = BucketTable::nextBucket(bucket, buckets_.bits());
    if (next == BucketTable::kNoBucket) {
      if (end.isNil()) return true;
      return fail("the chain of bucket {}, the last, names bucket {} as the next", bucket, end.id());
    }
    if (end.isNil()) return fail("the list ends in bucket {}, before the last", bucket);
    if (end.id() == next) return true;
    return fail("the chain of bucket {} names bucket {} as the next, not {}", bucket, end.id(), next);
  }

  bool walkFreeList() {
    std::uint32_t next = slots_.freeList();
    for (; next != SlotLink::kNil; next = slots_.link(next).target()) {
      if (next >= slots_.slots()) return fail("free list: out-of-range index: {} max:{}", next, maxIndex());
      if (marks_[next]) return fail("slot {} is on the free list twice", next);
      marks_[next] = true;
      if (slots_.link(next).occupied()) return fail("slot {} is on the free list, but occupied", next);
      ++free_;
    }
    return true;
  }

  void checkSum() {
    if (occupied_ + free_ != slots_.slots())
      fail("{} records and {} free slots do not add up to numSlots:{}", occupied_, free_, slots_.slots());
  }

  std::uint32_t maxIndex() const { return slots_.slots() - 1; }

  SlotsImage const& slots_;
  BucketsImage const& buckets_;
  SharedMem::EmberId const generation_;
  StoredType const* type_;
  bool slotsReadable_ = false;
  bool bucketsReadable_ = false;
  std::vector<bool> marks_;
  std::uint64_t occupied_ = 0;
  std::uint64_t free_ = 0;
  StoreReport report_;
};

}  // namespace

StoreReport checkStore(SlotsImage const& slots, BucketsImage const& buckets, SharedMem::EmberId generation,
                       StoredType const* type) {
  return Check(slots, buckets, generation, type).run();
}

}  // namespace Vault
