#include "host/RunOperations.h"

#include <fmt/format.h>

#include <algorithm>
#include <ranges>
#include <utility>

#include "host/ChipFaultOperation.h"
#include "host/FieldValues.h"
#include "host/OperationInput.h"
#include "runtime/Dovel/Format.h"

namespace Host {
namespace {

using LoamAsicUtils::HwShadowKey;
using LoamAsicUtils::KeyImage;
using LoamAsicUtils::TableCatalogue;
using Sluice::FapId;
using Sluice::Fapmask;

KeyImage keyImage(LiveTable const& table, std::vector<std::uint64_t> const& members) {
  return table.access().keyOf(members);
}

// Says that it isn't the operation's, or that one is missing.
void checkMembers(RunOperations::Operation const& operation, Json const& given) {
  std::vector<std::string_view> names{"op"};
  for (auto const& member : operation.members) names.push_back(member.name);
  for (auto const& [name, value] : given.items())
    if (std::ranges::find(names, name) == names.end()) throwUnknown(operation.name, "member", name, names);
  for (auto const& member : operation.members)
    if (member.required && !given.contains(member.name))
      throw InputError(fmt::format("{}: {} is missing", operation.name, member.name));
}

RunOperations::Operation const& operationOf(Json const& given) {
  auto const op = given.find("op");
  if (op == given.end() || !op->is_string())
    throw InputError(fmt::format("no operation: {}: op is to name one", textOf(given)));
  auto const& operations = RunOperations::operations();
  auto const found =
      std::ranges::find(operations, op->get_ref<std::string const&>(), &RunOperations::Operation::name);
  if (found != operations.end()) return *found;
  std::vector<std::string_view> names;
  names.reserve(operations.size());
  for (auto const& operation : operations) names.push_back(operation.name);
  throwUnknown("", "operation", op->get_ref<std::string const&>(), names);
}

}  // namespace

std::vector<RunOperations::Operation> const& RunOperations::operations() {
  static std::vector<Operation> const kOperations{
      {"set",
       {{"table", true}, {"key", true}, {"view", false}, {"fields", false}, {"fap", false}},
       &RunOperations::set},
      {"delete", {{"table", true}, {"key", true}, {"fap", false}}, &RunOperations::del},
      {"get", {{"table", true}, {"key", true}, {"fap", false}}, &RunOperations::get},
      {"flush", {}, &RunOperations::flush},
      {"fap-add", {{"fap", false}}, &RunOperations::fapAdd},
      {"fap-del", {{"fap", false}}, &RunOperations::fapDel},
      {"chip-reset", {{"fap", false}}, &RunOperations::chipReset},
      {"download", {{"table", false}, {"fap", false}}, &RunOperations::download},
      {"clear", {{"table", false}, {"fap", false}}, &RunOperations::clear},
      {"restart", {}, &RunOperations::restart},
      {"sync-done", {}, &RunOperations::syncDone},
      {"reconcile", {{"table", false}, {"fap", false}}, &RunOperations::reconcile},
      {"verify", {{"table", false}, {"fap", false}}, &RunOperations::verify},
      {"chip-fault",
       {{"kind", true},
        {"fap", false},
        {"nth", false},
        {"after", false},
        {"bit", false},
        {"status", false},
        {"table", false},
        {"key", false},
        {"rows", false},
        {"seed", false},
        {"probability", false}},
       &RunOperations::chipFault},
  };
  return kOperations;
}

RunOperations::RunOperations(ControlPlane& plane, unsigned faps, RunReport& report)
    : plane_(plane),
      faps_(faps),
      report_(report),
      tell_([this](FormerStore const& former) { report_.formerStore(former); }),
      resets_(faps) {}

void RunOperations::start() {
  Fapmask all;
  for (unsigned fap = 0; fap < faps_; ++fap) all.fapIdIs(fap, true);
  for (auto const& start : plane_.start(all, tell_)) report_.started(start);
}

void RunOperations::run(std::string const& line) {
  Json const given = objectOf(line);
  Operation const& operation = operationOf(given);
  checkMembers(operation, given);
  (this->*operation.run)(given);
  tellResets();
}

void RunOperations::set(Json const& given) {
  LiveTable const& table = tableOf(given);
  auto const key = keyImage(table, keyMembersOf(*table.description, given["key"]));
  auto const row = rowOf(*table.description, given.value("view", Json()), given.value("fields", Json()));
  for (HwShadowKey const shadow : plane_.shadows(table, fapOf(given)))
    plane_.setEntry(table, shadow, key, row);
}

void RunOperations::del(Json const& given) {
  LiveTable const& table = tableOf(given);
  auto const key = keyImage(table, keyMembersOf(*table.description, given["key"]));
  for (HwShadowKey const shadow : plane_.shadows(table, fapOf(given))) plane_.deleteEntry(table, shadow, key);
}

void RunOperations::get(Json const& given) {
  LiveTable const& table = tableOf(given);
  auto const members = keyMembersOf(*table.description, given["key"]);
  auto const key = keyImage(table, members);
  for (HwShadowKey const shadow : plane_.shadows(table, fapOf(given))) {
    report_.entry(table, shadow, members, table.access().getEntry(*table.table, shadow, key),
                  table.access().stored(*table.table->hwShadow(shadow), key));
  }
}

void RunOperations::flush(Json const& /*given*/) { plane_.writer().flush(); }

void RunOperations::fapAdd(Json const& given) {
  FapId const one = fapOf(given);
  for (unsigned fap = 0; fap < faps_; ++fap) {
    if ((one.isNull() || one == FapId(fap)) && !plane_.faps().fapId(fap))
      report_.started(plane_.fapAdd(fap, tell_));
  }
}

void RunOperations::fapDel(Json const& given) {
  for (FapId const fap : upFapsOf(given).fapIds()) {
    plane_.fapDel(fap);
    report_.event({{"event", "fap-del"}, {"fap", fap.value()}},
                  fmt::format("FAP {} is gone: its chip is cleared", fap));
  }
}

// What waits is sent first, as before every operation that touches a chip; what the chip then hasn't answered
// is lost.
void RunOperations::chipReset(Json const& given) {
  Fapmask const faps = upFapsOf(given);
  plane_.writer().flush();
  for (FapId const fap : faps.fapIds()) {
    plane_.chip().reset(fap);
    resets_[fap.value()] = plane_.chip().resets(fap);
    report_.event({{"event", "chip-reset"}, {"fap", fap.value()}},
                  fmt::format("FAP {} is reset: its chip is blank", fap));
  }
}

void RunOperations::download(Json const& given) {
  auto const tables = tablesOf(given);
  Fapmask const faps = upFapsOf(given);
  Sluice::SendOutcome all;
  for (LiveTable const* const table : tables) all += plane_.download(*table, faps);
  report_.sent("download", all);
}

void RunOperations::clear(Json const& given) {
  auto const tables = tablesOf(given);
  FapId const fap = fapOf(given);
  Sluice::SendOutcome all;
  for (LiveTable const* const table : std::views::reverse(tables)) {
    // A FAP's own tables, where all are asked for.
    if (tables.size() > 1 && !fap.isNull() && table->table->sharedShadow()) continue;
    for (HwShadowKey const shadow : plane_.shadows(*table, fap)) all += plane_.clear(*table, shadow);
  }
  report_.sent("clear", all);
}

void RunOperations::restart(Json const& /*given*/) {
  report_.event({{"event", "restart"}}, "restart: the control plane is built again over the same chips");
  for (auto const& start : plane_.start(plane_.restart(), tell_)) report_.started(start);
}

void RunOperations::syncDone(Json const& /*given*/) { report_.syncDone(plane_.syncDone()); }

void RunOperations::reconcile(Json const& given) {
  auto const tables = tablesOf(given);
  Fapmask const faps = upFapsOf(given);
  if (tables.size() == 1 && !tables.front()->isExactMatch()) {
    throw InputError(
        fmt::format("reconcile: {}: only exact-match tables are reconciled; download does it for others",
                    tables.front()->name()));
  }
  std::vector<ControlPlane::Reconciliation> reconciled;
  for (LiveTable const* const table : tables)
    if (table->isExactMatch()) reconciled.push_back(plane_.reconcile(*table, faps));
  report_.reconciled(reconciled);
}

void RunOperations::verify(Json const& given) {
  auto const tables = tablesOf(given);
  Fapmask const faps = upFapsOf(given);
  Verdict const verdict = verifyChips(plane_, tables, faps, busy_);
  allClean_ &= verdict.clean();
  report_.verdict(verdict, faps);
}

void RunOperations::chipFault(Json const& given) {
  LiveTable const* const table = given.contains("table") ? &tableOf(given) : nullptr;
  setChipFault(plane_, given, fapOf(given), table);
}

LiveTable const& RunOperations::tableOf(Json const& given) const {
  Json const& name = given["table"];
  LiveTable const* const found =
      name.is_string() ? plane_.table(name.get_ref<std::string const&>()) : nullptr;
  if (found != nullptr) return *found;
  if (auto const* const other = name.is_string() ? TableCatalogue::table(name.get<std::string>()) : nullptr) {
    throw InputError(
        fmt::format("{}: tables of the family {} are not run", other->name, stringValue(other->family)));
  }
  std::vector<std::string_view> names;
  for (LiveTable const& table : plane_.tables()) names.push_back(table.name());
  throwUnknown("", "table", givenName(name), names);
}

std::vector<LiveTable const*> RunOperations::tablesOf(Json const& given) const {
  if (given.contains("table") && given["table"] != "all") return {&tableOf(given)};
  std::vector<LiveTable const*> all;
  for (LiveTable const& table : plane_.tables()) all.push_back(&table);
  return all;
}

FapId RunOperations::fapOf(Json const& given) const {
  if (!given.contains("fap")) return FapId::null();
  return FapId(numberOf(given, "fap", {.min = 0, .max = faps_ - 1}));
}

Fapmask RunOperations::upFapsOf(Json const& given) const {
  FapId const fap = fapOf(given);
  if (fap.isNull()) return plane_.faps();
  if (!plane_.faps().fapId(fap)) throw InputError(fmt::format("fap {}: not up", fap));
  return only(fap);
}

void RunOperations::tellResets() {
  for (unsigned fap = 0; fap < faps_; ++fap) {
    std::uint64_t const resets = plane_.chip().resets(fap);
    if (std::exchange(resets_[fap], resets) != resets) report_.resetItself(fap);
  }
}

}  // namespace Host
