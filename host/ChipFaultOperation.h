// The operation that asks the chips for a fault, so that one can see what the system makes of it.
#pragma once

#include "host/ControlPlane.h"
#include "host/InputError.h"

namespace Host {

// The null FAP stands for the first; `table` is that of the operation, null where it has none. Throws
// InputError.
void setChipFault(ControlPlane& plane, Json const& given, Sluice::FapId fap, LiveTable const* table);

// The kinds, each with what it does, for the manual.
struct ChipFaultKind {
  std::string_view name;
  std::string_view does;
};
std::vector<ChipFaultKind> const& chipFaultKinds();

}  // namespace Host
