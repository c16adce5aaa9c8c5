// The slots of a store, raw and decoded.
#pragma once

#include <cstdint>

#include "Vault/StoreFiles.h"
#include "Vault/StoredType.h"
#include "host/Output.h"

namespace Host {

// Slots first to end, end excluded.
struct SlotRange {
  std::uint32_t first;
  std::uint32_t end;
};

// The store was read as a whole, and has the slots. Where the type isn't known, null, records are bytes only.
void dumpText(Vault::StoreFiles const& store, SlotRange range, Vault::StoredType const* type, Output& output);
// One JSON object.
void dumpJson(Vault::StoreFiles const& store, SlotRange range, Vault::StoredType const* type, Output& output);

}  // namespace Host
