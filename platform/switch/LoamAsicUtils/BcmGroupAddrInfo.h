// A table's descriptor: in which memories of the chip its rows lie. A small tree that is built with the table
// and never changed afterwards, so any thread may read it; shadows and readers hold it as Ptr<... const>.
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "platform/switch/LoamAsicUtils/HwShadowKey.h"
#include "platform/switch/LoamAsicUtils/Types.h"
#include "platform/switch/TableDescription.h"
#include "runtime/Dovel/PtrIs.h"

namespace LoamAsicUtils {

// One instance of a memory in a block of the chip.
class BcmInstanceInfo : public Dovel::Tracked<BcmInstanceInfo> {
 public:
  explicit BcmInstanceInfo(InstanceId instanceId) : instanceId_(instanceId) {}
  ~BcmInstanceInfo() override;

  InstanceId instanceId() const { return instanceId_; }
  // The first number by which S-channel commands address the instance.
  std::uint32_t location() const { return location_; }
  // The block, as S-channel commands number it.
  std::uint32_t block() const { return block_; }
  // Of the memory's first row in the block, or of the register.
  std::uint32_t address() const { return address_; }

  void placeIs(std::uint32_t block, std::uint32_t address) {
    block_ = block;
    address_ = address;
  }

 private:
  InstanceId instanceId_;
  std::uint32_t location_ = 0;
  std::uint32_t block_ = 0;
  std::uint32_t address_ = 0;
};

// How the rows of a memory are numbered, and how wide they are.
struct MemoryGeometry {
  std::uint8_t firstArray = 0;
  std::uint8_t arrayCount = 1;
  std::uint32_t firstEntry = 0;
  std::uint32_t entryCount = 0;  // in an array
  std::uint16_t entrySize = 0;   // bytes
};

// A memory or register of a table.
class BcmRegMemInfo : public Dovel::Node {
 public:
  MemoryId memoryId() const { return memoryId_; }
  Dovel::String const& name() const { return name_; }
  MemoryGeometry const& geometry() const { return geometry_; }
  std::uint8_t firstArray() const { return geometry_.firstArray; }
  std::uint8_t arrayCount() const { return geometry_.arrayCount; }
  std::uint32_t firstEntry() const { return geometry_.firstEntry; }
  std::uint32_t entryCount() const { return geometry_.entryCount; }
  std::uint16_t entrySize() const { return geometry_.entrySize; }
  std::uint32_t rowCount() const { return std::uint32_t{arrayCount()} * entryCount(); }

  // In ascending order of their ids, which follow each other.
  std::vector<Dovel::Ptr<BcmInstanceInfo>> const& instances() const { return instances_; }
  // Null where there is no such instance.
  BcmInstanceInfo const* instance(InstanceId id) const;

  // Whether the memory has such a row.
  bool hasRow(std::uint8_t array, std::uint32_t entry) const;
  // The address of a row: rows of one array follow each other, and so do arrays.
  std::uint32_t rowAddress(BcmInstanceInfo const& instance, std::uint8_t array, std::uint32_t entry) const {
    return instance.address() +
           std::uint32_t{static_cast<std::uint8_t>(array - firstArray())} * entryCount() +
           (entry - firstEntry());
  }

  void nameIs(Dovel::String const& name) { name_ = name; }
  void geometryIs(MemoryGeometry const& geometry) { geometry_ = geometry; }
  // Adds an instance, or replaces the one of its id.
  void instanceInfoIs(Dovel::Ptr<BcmInstanceInfo> const& instance);

 protected:
  explicit BcmRegMemInfo(MemoryId memoryId) : memoryId_(memoryId) {}

 private:
  MemoryId memoryId_;
  Dovel::String name_;
  MemoryGeometry geometry_;
  std::vector<Dovel::Ptr<BcmInstanceInfo>> instances_;
};

// A chip memory: direct tables.
class BcmMemInfo : public Dovel::Tracked<BcmMemInfo, BcmRegMemInfo> {
 public:
  explicit BcmMemInfo(MemoryId memoryId) : Dovel::Tracked<BcmMemInfo, BcmRegMemInfo>(memoryId) {}
  ~BcmMemInfo() override;
};

// A chip register: the register table.
class BcmRegInfo : public Dovel::Tracked<BcmRegInfo, BcmRegMemInfo> {
 public:
  explicit BcmRegInfo(MemoryId memoryId) : Dovel::Tracked<BcmRegInfo, BcmRegMemInfo>(memoryId) {}
  ~BcmRegInfo() override;
};

// A physical table of the chip's exact-match databases.
class BcmEmTableInfo : public Dovel::Tracked<BcmEmTableInfo, BcmRegMemInfo> {
 public:
  explicit BcmEmTableInfo(MemoryId memoryId) : Dovel::Tracked<BcmEmTableInfo, BcmRegMemInfo>(memoryId) {}
  ~BcmEmTableInfo() override;

  std::uint8_t physicalTableId() const { return physicalTableId_; }
  void physicalTableIdIs(std::uint8_t id) { physicalTableId_ = id; }

 private:
  std::uint8_t physicalTableId_ = 0;
};

// All memories of one table. They have the same geometry.
class BcmGroupAddrInfo : public Dovel::Node {
 public:
  Dovel::String const& name() const { return name_; }

  // In ascending order of their ids.
  std::vector<Dovel::Ptr<BcmRegMemInfo>> const& memories() const { return memories_; }
  // Null where there is no such memory.
  Dovel::Ptr<BcmRegMemInfo> memory(MemoryId id) const;
  // The one that tells the geometry of all. A group without memories ends the process.
  BcmRegMemInfo const& firstMemory() const;

  // Adds a memory, or replaces the one of its id.
  void memInfoIs(Dovel::Ptr<BcmRegMemInfo> const& memory);

  // How many entries a shadow of the table has to hold at least.
  std::uint32_t minShadowSize() const { return memories_.empty() ? 0 : firstMemory().rowCount(); }

 protected:
  explicit BcmGroupAddrInfo(Dovel::String const& name) : name_(name) {}

  // Adds the memories that a table describes, each with its instance 0.
  template <class MemoryInfo>
  void memoriesAre(TableDescription const& table) {
    for (MemoryDescription const& described : table.memories) {
      auto const memory = Dovel::ptrIsImpl<MemoryInfo>(MemoryId{described.id});
      if constexpr (requires { memory->physicalTableIdIs(0); })
        memory->physicalTableIdIs(described.physicalTableId.value_or(0));
      memInfoIs(memory);
      describe(*memory, described);
    }
  }

 private:
  static void describe(BcmRegMemInfo& memory, MemoryDescription const& described);

  Dovel::String name_;
  std::vector<Dovel::Ptr<BcmRegMemInfo>> memories_;
};

}  // namespace LoamAsicUtils
