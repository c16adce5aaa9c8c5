#include "platform/switch/LoamAsicUtils/BcmGroupAddrInfo.h"

#include <algorithm>

#include "runtime/Dovel/Format.h"

namespace LoamAsicUtils {
namespace {

// Puts a node into a list that is sorted by the number that each of them has.
template <class Node, class IdOf>
void insertSorted(std::vector<Dovel::Ptr<Node>>& list, Dovel::Ptr<Node> const& node, IdOf idOf) {
  auto const at = std::lower_bound(list.begin(), list.end(), idOf(*node),
                                   [&](auto const& one, auto id) { return idOf(*one) < id; });
  if (at != list.end() && idOf(**at) == idOf(*node)) {
    *at = node;
  } else {
    list.insert(at, node);
  }
}

}  // namespace

BcmInstanceInfo::~BcmInstanceInfo() { markBeingDestroyed(); }
BcmMemInfo::~BcmMemInfo() { markBeingDestroyed(); }
BcmRegInfo::~BcmRegInfo() { markBeingDestroyed(); }
BcmEmTableInfo::~BcmEmTableInfo() { markBeingDestroyed(); }

BcmInstanceInfo const* BcmRegMemInfo::instance(InstanceId id) const {
  auto const found = std::find_if(instances_.begin(), instances_.end(),
                                  [id](auto const& one) { return one->instanceId() == id; });
  return found == instances_.end() ? nullptr : found->ptr();
}

bool BcmRegMemInfo::hasRow(std::uint8_t array, std::uint32_t entry) const {
  return array >= firstArray() && array - firstArray() < arrayCount() && entry >= firstEntry() &&
         entry - firstEntry() < entryCount();
}

void BcmRegMemInfo::instanceInfoIs(Dovel::Ptr<BcmInstanceInfo> const& instance) {
  insertSorted(instances_, instance, [](auto const& one) { return one.instanceId(); });
}

Dovel::Ptr<BcmRegMemInfo> BcmGroupAddrInfo::memory(MemoryId id) const {
  auto const found = std::find_if(memories_.begin(), memories_.end(),
                                  [id](auto const& one) { return one->memoryId() == id; });
  return found == memories_.end() ? nullptr : *found;
}

BcmRegMemInfo const& BcmGroupAddrInfo::firstMemory() const {
  DOVEL_ASSERT(!memories_.empty(), "LoamAsicUtils::BcmGroupAddrInfo", "{} has no memories", name_);
  return *memories_.front();
}

void BcmGroupAddrInfo::memInfoIs(Dovel::Ptr<BcmRegMemInfo> const& memory) {
  insertSorted(memories_, memory, [](auto const& one) { return one.memoryId(); });
}

void BcmGroupAddrInfo::describe(BcmRegMemInfo& memory, MemoryDescription const& described) {
  memory.nameIs(Dovel::String(std::string(described.name)));
  memory.geometryIs({.firstArray = described.firstArray,
                     .arrayCount = described.arrayCount,
                     .firstEntry = described.firstEntry,
                     .entryCount = described.entryCount,
                     .entrySize = static_cast<std::uint16_t>(described.entrySize)});
  auto const instance = Dovel::ptrIsImpl<BcmInstanceInfo>(InstanceId{0});
  memory.instanceInfoIs(instance);
  instance->placeIs(described.block, described.address);
}

}  // namespace LoamAsicUtils
