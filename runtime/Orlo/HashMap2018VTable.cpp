#include "runtime/Orlo/HashMap2018VTable.h"

#include <cstring>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Orlo {

HashMap2018BucketHeader* HashMap2018VTable::trivialNewBucketAssemble(HashMap2018VTable const& vtable,
                                                                     std::uint32_t count) {
  if (count > Header::kMaxCount)
    DOVEL_THROW(Dovel::MemoryResourceException, "Orlo::HashMap2018",
                "more than {} keys share one part of the hash; the map is unchanged", Header::kMaxCount);
  auto* const start = static_cast<std::byte*>(
      KilnSlab::slabAllocOrStdMalloc(vtable.nodesOffset(count) + count * vtable.nodeSize));
  auto* const header = reinterpret_cast<Header*>(start + count * sizeof(std::uint32_t));
  *header = {count << Header::kCountShift, 1};
  AllocTrackTypeInfo::_trackAllocation(&Header::memAllocationTracker_, typeid(Header), sizeof(Header),
                                       alignof(Header));
  return header;
}

void HashMap2018VTable::trivialPlace(HashMap2018VTable const& vtable, Header* bucket, std::uint32_t index,
                                     std::uint32_t hash, void const* node) {
  bucket->hashes()[index] = hash;
  std::memcpy(vtable.node(bucket, index), node, vtable.nodeSize);
}

void HashMap2018VTable::trivialShift(HashMap2018VTable const& vtable, Header* bucket, std::uint32_t to,
                                     Header const* source, std::uint32_t from, std::uint32_t count) {
  if (count == 0) return;
  std::memcpy(bucket->hashes() + to, source->hashes() + from, count * sizeof(std::uint32_t));
  std::memcpy(vtable.node(bucket, to), vtable.node(source, from), count * vtable.nodeSize);
}

}  // namespace Orlo
