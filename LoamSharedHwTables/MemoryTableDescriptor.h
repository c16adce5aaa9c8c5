// The descriptor of a table with memories, made from what its unit describes. See BcmGroupAddrInfo.h for the
// thread rule.
#pragma once

#include "platform/switch/LoamAsicUtils/BcmGroupAddrInfo.h"

namespace LoamSharedHwTables {

template <class Unit, class MemoryInfo>
class MemoryTableDescriptor final
    : public Dovel::Tracked<MemoryTableDescriptor<Unit, MemoryInfo>, LoamAsicUtils::BcmGroupAddrInfo> {
 public:
  MemoryTableDescriptor()
      : Dovel::Tracked<MemoryTableDescriptor, LoamAsicUtils::BcmGroupAddrInfo>(
            Dovel::String(Unit::Traits::description().groupName)) {
    this->template memoriesAre<MemoryInfo>(Unit::Traits::description());
  }
  ~MemoryTableDescriptor() override { this->markBeingDestroyed(); }

  static Dovel::Ptr<MemoryTableDescriptor> TableDescriptorIs() {
    return Dovel::ptrIsImpl<MemoryTableDescriptor>();
  }
};

}  // namespace LoamSharedHwTables
