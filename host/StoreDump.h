// The slots of a store, raw and decoded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

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

// One record: its key and the fields that are not 0, or all of them as one JSON object.
std::string recordText(std::byte const* value, Vault::StoredType const& type, bool json);

}  // namespace Host
