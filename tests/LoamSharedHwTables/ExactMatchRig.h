// What tests of exact-match tables share.
#pragma once

#include <gmock/gmock.h>

#include <limits>
#include <map>

#include "platform/switch/LoamAsicUtils/EmRead.h"
#include "runtime/Orlo/BoundedInteger.h"
#include "tests/LoamSharedHwTables/TableRig.h"

namespace TestSupport {

// The keys of a table by their numbers: the first member counts fastest.
template <class Key>
Key numberedKey(std::uint64_t number) {
  Key key;
  auto const fill = [&]<class Member>(Member& member) {
    std::uint64_t values = 0;
    if constexpr (requires { Member::max(); }) {
      values = Orlo::numberOf(Member::max()) + 1;
    } else {
      values = std::uint64_t{std::numeric_limits<Member>::max()} + 1;
    }
    member = static_cast<Member>(number % values);
    number /= values;
  };
  std::apply([&](auto&... member) { (fill(member), ...); }, Key::members(key));
  return key;
}

// An entry of the key with that number, and a result of its own.
template <class T>
typename T::Entry numberedEntry(std::uint64_t number, std::uint32_t result) {
  typename T::Entry entry(numberedKey<typename T::EntryKey>(number));
  if constexpr (requires { entry.inLif(); }) {
    entry.inLifIs(result);
  } else {
    entry.statObjectIdIs(result);
  }
  return entry;
}

template <class Entry>
std::uint32_t resultOf(Entry const& entry) {
  if constexpr (requires { entry.inLif(); }) {
    return entry.inLif().value();
  } else {
    return entry.statObjectId().value();
  }
}

// All that a FAP holds of the table, by key.
template <class T>
std::map<typename T::EntryKey, typename T::Entry> onChip(TableRig const& rig, T const& table, unsigned fap) {
  std::map<typename T::EntryKey, typename T::Entry> entries;
  Sluice::SendOutcome sent;
  bool const complete =
      LoamAsicUtils::readEntries(*rig.channel, table, fap, sent, [&](std::span<std::uint8_t const> data) {
        typename T::Entry entry;
        entry.dataBytesIs(data.data());
        entry.setKeyFromBuffer();
        EXPECT_TRUE(entries.emplace(entry.entryKey(), entry).second);
      });
  EXPECT_TRUE(complete);
  return entries;
}

// Their results alone.
template <class T>
std::map<typename T::EntryKey, std::uint32_t> resultsOnChip(TableRig const& rig, T const& table,
                                                            unsigned fap) {
  std::map<typename T::EntryKey, std::uint32_t> results;
  for (auto const& [key, entry] : onChip(rig, table, fap)) results[key] = resultOf(entry);
  return results;
}

template <class Cmds>
std::size_t countOf(Cmds const& cmds) {
  return cmds == nullptr ? 0 : cmds->size();
}

}  // namespace TestSupport
