#include "host/ChipFaultOperation.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>

#include "host/FieldValues.h"
#include "host/OperationInput.h"

namespace Host {
namespace {

using Chip::ChipFault;
using Sluice::SchanStatus;

constexpr std::uint64_t kAny = std::numeric_limits<std::uint32_t>::max();

std::uint64_t orElse(Json const& given, std::string_view name, std::uint64_t otherwise, NumberRange legal) {
  return given.contains(name) ? numberOf(given, name, legal) : otherwise;
}

SchanStatus statusOf(Json const& given) {
  static constexpr std::array<std::pair<std::string_view, SchanStatus>, 4> kStatuses{
      {{"badAddress", SchanStatus::badAddress},
       {"bucketFull", SchanStatus::bucketFull},
       {"badDatabase", SchanStatus::badDatabase},
       {"noResponse", SchanStatus::noResponse}}};
  if (!given.contains("status")) return SchanStatus::badAddress;
  std::vector<std::string_view> names;
  for (auto const& [name, status] : kStatuses) {
    if (given["status"] == name) return status;
    names.push_back(name);
  }
  throwUnknown("chip-fault", "status", givenName(given["status"]), names);
}

void oneFault(ControlPlane& plane, Json const& given, Sluice::FapId fap, ChipFault::Kind kind) {
  plane.chip().faults().faultIs({.kind = kind,
                                 .fap = fap.isNull() ? Sluice::FapId::min() : fap,
                                 .nth = orElse(given, "nth", 1, {1, kAny}),
                                 .status = statusOf(given),
                                 .after = orElse(given, "after", 1, {1, kAny}),
                                 .bit = static_cast<std::uint32_t>(orElse(given, "bit", 0, {0, kAny}))});
}

// Rows of the table's first memory, from that of the key on.
void refuseRows(ControlPlane& plane, Json const& given, LiveTable const* table) {
  if (table == nullptr || !given.contains("key")) throw InputError("chip-fault: table or key is missing");
  auto const key = keyMembersOf(*table->description, given["key"]);
  auto const& memory = table->table->bcmGroupAddrInfo()->firstMemory();
  auto const& instance = *memory.instances().front();
  auto const array = key.size() == 2 ? static_cast<std::uint8_t>(key[0]) : memory.firstArray();
  plane.chip().faults().refusedRowsAre(
      instance.block(), memory.rowAddress(instance, array, static_cast<std::uint32_t>(key.back())),
      static_cast<std::uint32_t>(orElse(given, "rows", 1, {1, memory.rowCount()})), statusOf(given));
}

// One key of an exact-match table.
void refuseKey(ControlPlane& plane, Json const& given, LiveTable const* live) {
  if (live == nullptr || !given.contains("key")) throw InputError("chip-fault: table or key is missing");
  if (!live->isExactMatch()) {
    throw InputError(fmt::format(
        "chip-fault: {}: only keys of exact-match tables are refused; refuseRows does it for others",
        live->name()));
  }
  auto const key = live->access().keyOf(keyMembersOf(*live->description, given["key"]));
  auto const shadows = plane.shadows(*live, Sluice::FapId::null());
  auto const row = live->access().getEntry(*live->table, shadows.front(), key);
  auto const database = Dovel::ptrDynamicCast<LoamAsicUtils::BcmEmTableInfo>(
      live->table->bcmGroupAddrInfo()->memories().front());
  plane.chip().faults().refusedKeyIs(database->physicalTableId(),
                                     Chip::ExactMatchEntry::of(std::as_bytes(std::span(row.data)).data()),
                                     statusOf(given));
}

// How often, and by which numbers.
struct Chance {
  std::uint64_t seed;
  double probability;
};

Chance chanceOf(Json const& given) {
  Json const chance = given.value("probability", Json());
  if (!chance.is_number() || chance.get<double>() < 0 || chance.get<double>() > 1)
    throw InputError(fmt::format("probability: {} is not 0 to 1", textOf(chance)));
  return {orElse(given, "seed", 1, {0, kAny}), chance.get<double>()};
}

void refuseByChance(ControlPlane& plane, Json const& given) {
  Chance const chance = chanceOf(given);
  plane.chip().faults().randomRefusalIs(chance.seed, chance.probability, statusOf(given));
}

void loseByChance(ControlPlane& plane, Json const& given) {
  Chance const chance = chanceOf(given);
  plane.chip().faults().randomLossIs(chance.seed, chance.probability);
}

void lateByChance(ControlPlane& plane, Json const& given) {
  Chance const chance = chanceOf(given);
  plane.chip().faults().randomLateIs(chance.seed, chance.probability, orElse(given, "after", 1, {1, kAny}));
}

}  // namespace

std::vector<ChipFaultKind> const& chipFaultKinds() {
  static std::vector<ChipFaultKind> const kKinds{
      {"refuse", "the nth command is answered with the status and does nothing"},
      {"loseAnswer", "the nth command is done and never answered"},
      {"lateAnswer", "the nth command is done and answered `after` commands later"},
      {"flipBit", "of the nth write the bit arrives turned"},
      {"resetInTransfer", "the nth bulk transfer moves half of its rows, then the FAP resets itself"},
      {"failPass",
       "the nth pass over an exact-match database does half of its work and answers with the status"},
      {"slowPass", "the nth pass pauses `after` microseconds after every 256 entries that it works on"},
      {"refuseRows", "all that touches these rows of the table's first memory is refused, on every FAP"},
      {"refuseKey", "all that writes or deletes this key of the exact-match table is refused, on every FAP"},
      {"refuseByChance", "each command is refused with the probability, by the seed"},
      {"loseByChance", "each command is done and never answered with the probability, by the seed"},
      {"lateByChance", "each command is done and answered up to `after` commands later with the probability"},
      {"noBuffer", "the nth request for a DMA buffer gets none"},
      {"none", "no chip faults from now on"},
  };
  return kKinds;
}

void setChipFault(ControlPlane& plane, Json const& given, Sluice::FapId fap, LiveTable const* table) {
  std::string const kind = givenName(given["kind"]);
  if (kind == "refuse") return oneFault(plane, given, fap, ChipFault::Kind::refuse);
  if (kind == "loseAnswer") return oneFault(plane, given, fap, ChipFault::Kind::loseAnswer);
  if (kind == "lateAnswer") return oneFault(plane, given, fap, ChipFault::Kind::lateAnswer);
  if (kind == "flipBit") return oneFault(plane, given, fap, ChipFault::Kind::flipBit);
  if (kind == "resetInTransfer") return oneFault(plane, given, fap, ChipFault::Kind::resetInTransfer);
  if (kind == "failPass") return oneFault(plane, given, fap, ChipFault::Kind::failPass);
  if (kind == "slowPass") return oneFault(plane, given, fap, ChipFault::Kind::slowPass);
  if (kind == "refuseRows") return refuseRows(plane, given, table);
  if (kind == "refuseKey") return refuseKey(plane, given, table);
  if (kind == "refuseByChance") return refuseByChance(plane, given);
  if (kind == "loseByChance") return loseByChance(plane, given);
  if (kind == "lateByChance") return lateByChance(plane, given);
  if (kind == "noBuffer") return plane.pool().failNthIs(orElse(given, "nth", 1, {1, kAny}));
  if (kind == "none") return plane.chip().faults().faultsDel();
  std::vector<std::string_view> names;
  for (ChipFaultKind const& one : chipFaultKinds()) names.push_back(one.name);
  throwUnknown("chip-fault", "kind", kind, names);
}

}  // namespace Host
