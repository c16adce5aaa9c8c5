#include "Vault/StoreImage.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace Vault {
namespace {

using VaultCore::BucketTable;

// Larger values would overflow the sizes; none is stored.
constexpr std::uint32_t kMaxValueSize = 1u << 30;

}  // namespace

SlotsImage::SlotsImage(FileImage file) : file_(std::move(file)) {
  std::uint32_t const valueSize = this->valueSize();
  if (valueSize == 0 || valueSize % 4 != 0 || valueSize > kMaxValueSize) return;
  SlotShape const shape{valueSize};
  if (slotSize() != shape.slotSize() || shape.slotCells() == 0) return;
  slotCells_ = shape.slotCells();
  std::uint64_t const first = SlotTable::kLookasideWord + slotCells_;
  std::uint64_t const words = file_.words().size();
  if (words <= first) return;
  slots_ =
      static_cast<std::uint32_t>(std::min<std::uint64_t>((words - first) / slotCells_, numSlots().count));
}

std::string_view SlotsImage::typeName() const {
  if (file_.words().size() < SlotTable::kRuntimeFlagsWord) return {};
  char const* const bytes = static_cast<char const*>(static_cast<void const*>(file_.words().data()));
  char const* const name = bytes + SlotTable::kTypeNameOffset;
  return {name, ::strnlen(name, SlotTable::kTypeNameSize)};
}

std::uint64_t SlotsImage::wantedSize() const {
  return fullHeaderSize() + std::uint64_t{numSlots().count} * slotCells_ * sizeof(Mem::Cell);
}

std::uint32_t SlotsImage::hash(std::uint32_t id) const {
  // It begins in the lower or the upper half of a word, by the size of the value.
  std::uint32_t hash = 0;
  std::memcpy(&hash, value(id) + valueSize(), sizeof hash);
  return hash;
}

BucketsImage::BucketsImage(FileImage file) : file_(std::move(file)) {
  std::uint32_t const count = numBuckets().count;
  if (!std::has_single_bit(count) || count > BucketTable::kMaxBuckets) return;
  if (file_.words().size() < BucketTable::kFirstBucketCell + std::uint64_t{count}) return;
  buckets_ = count;
  bits_ = static_cast<unsigned>(std::countr_zero(count));
}

std::uint64_t BucketsImage::wantedSize() const {
  return BucketTable::kHeaderSize + std::uint64_t{numBuckets().count} * BucketTable::kElementSize;
}

}  // namespace Vault
