// What is asked of a map of the store when it is initialized. A plain value.
#pragma once

#include <fmt/core.h>

#include <cstdint>

#include "Vault/VaultType.h"
#include "platform/memory/CollectionDescriptor.h"
#include "platform/memory/CoreDump.h"
#include "runtime/Dovel/String.h"

namespace Vault {

struct MapDescriptor : Mem::CollectionDescriptor {
  // The writer of a local table that grows past `size` where it must and gives room back where it can. A
  // shared table is asked for with localMem false, another kind with vaultTypeIs().
  explicit MapDescriptor(unsigned int size);

  // May hold a number that names no type: the map checks it.
  VaultType vaultType() const { return static_cast<VaultType>(type); }
  void vaultTypeIs(VaultType value) { type = static_cast<std::uint8_t>(value); }

  bool supportsReinitWith(Mem::CollectionDescriptor const& other, Dovel::String& reason) const override;
  Dovel::String toString() const;

  bool fixedSize = false;          // never more than maxSize: a write into the full table throws
  bool shrink = true;              // slots are given back
  bool shrinkBuckets = true;       // and buckets
  bool noPrune = false;            // notifications are never dropped for newer ones of the same slot
  bool dummyHerald = false;        // posts no notifications, also where others could read
  bool trackMemory = false;        // what is mapped counts in the process's memory tracker
  bool criticalTaskCheck = false;  // long operations run the scheduler's critical tasks in between
  Mem::CoreDump coreDump = Mem::CoreDump::asProcess;
};

}  // namespace Vault

template <>
struct fmt::formatter<Vault::MapDescriptor> : Dovel::PlainFormatter {
  auto format(Vault::MapDescriptor const& descriptor, fmt::format_context& context) const {
    return write(descriptor.toString(), context);
  }
};
