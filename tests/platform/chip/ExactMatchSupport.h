// Exact-match entries, passes and chips for tests.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "tests/platform/chip/ChipSupport.h"

namespace TestSupport {

// The databases of the chip, told here anew, with the fields that the tables' entries have in them.
struct Database {
  std::uint32_t physicalTable;
  std::uint32_t tid;
  std::uint32_t entryType;
  unsigned keyBits;  // from bit 9 on
  unsigned sweepBit;
  unsigned result;  // the first of 17 bits, which are in one word
  unsigned vmv;
  unsigned vmvBits;
};
inline constexpr Database kMpls{64, 0, 1, 21, 63, 64, 83, 2};
inline constexpr Database kSrv6{64, 62, 1, 30, 63, 64, 83, 2};
inline constexpr Database kIp4Udp{64, 38, 0, 52, 122, 123, 142, 3};
inline constexpr Database kSVlan{65, 1, 1, 21, 63, 64, 83, 2};
inline constexpr Database kUntagged{65, 19, 1, 21, 63, 64, 83, 2};
inline constexpr Database kVsiToVni{37, 2, 0, 27, 68, 91, 144, 1};
inline constexpr Database kPortCvid{37, 4, 0, 39, 55, 113, 144, 1};
inline constexpr std::array kDatabases{kMpls, kSrv6, kIp4Udp, kSVlan, kUntagged, kVsiToVni, kPortCvid};

using Entry = Chip::SoftwareChip::EntryBytes;

inline void bitsAre(std::span<std::byte> bytes, unsigned first, unsigned width, std::uint64_t value) {
  for (unsigned bit = 0; bit < width; ++bit) {
    std::byte const mask = std::byte{1} << (first + bit) % 8;
    std::byte& at = bytes[(first + bit) / 8];
    at = bit < 64 && (value >> bit & 1) != 0 ? at | mask : at & ~mask;
  }
}
inline std::uint64_t bitsOf(std::span<std::byte const> bytes, unsigned first, unsigned width) {
  std::uint64_t value = 0;
  for (unsigned bit = 0; bit < width; ++bit)
    if ((bytes[(first + bit) / 8] >> (first + bit) % 8 & std::byte{1}) != std::byte{})
      value |= std::uint64_t{1} << bit;
  return value;
}

inline constexpr std::uint64_t kWrite = 288;
inline constexpr std::uint64_t kDelete = 320;

inline Entry entryOf(Database const& database, std::uint64_t key, std::uint64_t result = 1,
                     std::uint64_t command = kWrite) {
  Entry entry{};
  bitsAre(entry, 0, 9, command);
  bitsAre(entry, 9, database.keyBits, key);
  bitsAre(entry, database.result, 17, result);
  bitsAre(entry, database.vmv, database.vmvBits, 1);
  bitsAre(entry, 167, 3, database.entryType);
  bitsAre(entry, 170, 6, database.tid);
  return entry;
}

inline Sluice::schan_xmsg_user_ messageOf(Database const& database, Entry const& entry) {
  Sluice::schan_xmsg_user_ message{};
  message.header = 53U << 24 | 64;
  message.block = 282;
  message.physicalTableId = database.physicalTable;
  message.responseRequested = 1;
  std::memcpy(message.data, entry.data(), entry.size());
  return message;
}

inline Entry imageOf(Sluice::SchanResponse const& answer) {
  Entry entry;
  std::memcpy(entry.data(), answer.image, entry.size());
  return entry;
}
inline std::uint64_t found(Sluice::SchanResponse const& answer) { return bitsOf(imageOf(answer), 180, 1); }
inline std::uint64_t hits(Sluice::SchanResponse const& answer) { return bitsOf(imageOf(answer), 176, 4); }
inline std::uint64_t address(Sluice::SchanResponse const& answer) { return bitsOf(imageOf(answer), 151, 16); }
inline std::uint64_t wayIndex(Sluice::SchanResponse const& answer) { return bitsOf(imageOf(answer), 145, 4); }

// Without what the chip fills in.
inline Entry stripped(Entry entry) {
  bitsAre(entry, 145, 22, 0);
  bitsAre(entry, 176, 16, 0);
  return entry;
}

using Action = Sluice::FlushPass::Action;

// The rules of tables: clear is one of no bits, mark of vmv, sweep of the sweep bit.
inline Sluice::FlushPass passOf(Database const& database, Action action) {
  Sluice::FlushPass pass;
  pass.action = action;
  pass.block = 282;
  pass.physicalTableId = database.physicalTable;
  pass.tid = database.tid;
  pass.entryType = database.entryType;
  return pass;
}
inline void ruleIs(Sluice::FlushPass& pass, unsigned entryBit, unsigned width, std::uint64_t value) {
  bitsAre(std::as_writable_bytes(std::span(pass.rule.mask)), entryBit - 9, width, ~std::uint64_t{0});
  bitsAre(std::as_writable_bytes(std::span(pass.rule.value)), entryBit - 9, width, value);
}
inline unsigned payloadBit(Database const& database, unsigned entryBit) {
  return 127 - ((database.entryType == 1 ? 84 : 144) - entryBit);
}
inline Sluice::FlushPass markOf(Database const& database) {
  Sluice::FlushPass pass = passOf(database, Action::merge);
  ruleIs(pass, database.vmv, database.vmvBits, 1);
  unsigned const bit = payloadBit(database, database.sweepBit);
  bitsAre(std::as_writable_bytes(std::span(pass.payload.mask)), bit, 1, 1);
  bitsAre(std::as_writable_bytes(std::span(pass.payload.value)), bit, 1, 1);
  return pass;
}
inline Sluice::FlushPass sweepOf(Database const& database) {
  Sluice::FlushPass pass = passOf(database, Action::remove);
  ruleIs(pass, database.sweepBit, 1, 1);
  return pass;
}
inline Sluice::FlushAnswer flushAnswer(Sluice::SchanResponse const& answer) {
  Sluice::FlushAnswer told;
  std::memcpy(&told, answer.image, sizeof told);
  return told;
}
inline Sluice::BulkEmAnswer bulkAnswer(Sluice::SchanResponse const& answer) {
  Sluice::BulkEmAnswer told;
  std::memcpy(&told, answer.image, sizeof told);
  return told;
}

// A chip, a buffer, and the ways to both.
struct ExactMatchRig : testing::Test {
  Dovel::Ptr<Chip::SoftwareChip> chip;
  Dma const dma;

  explicit ExactMatchRig(std::uint32_t entries = 1024, unsigned candidates = 2) {
    chipIs({2, {}, entries, candidates});
  }
  void chipIs(Chip::SoftwareChip::Options const& options) {
    chip = nullptr;
    chip = Dovel::ptrIsImpl<Chip::SoftwareChip>(options);
    chip->dmaPoolIs(dma.pool());
  }

  Sluice::SchanResponse give(Database const& database, Entry const& entry, unsigned fap = 0) const {
    return answerTo(*chip, messageOf(database, entry), fap);
  }
  Sluice::SchanResponse write(Database const& database, std::uint64_t key, std::uint64_t result = 1,
                              unsigned fap = 0) const {
    return give(database, entryOf(database, key, result), fap);
  }
  Sluice::SchanResponse del(Database const& database, std::uint64_t key) const {
    return give(database, entryOf(database, key, 0, kDelete));
  }
  std::optional<Entry> look(Database const& database, std::uint64_t key, unsigned fap = 0) const {
    return look(database, entryOf(database, key), fap);
  }
  std::optional<Entry> look(Database const& database, Entry const& entry, unsigned fap = 0) const {
    return chip->lookUp(fap, database.physicalTable, database.tid, entry);
  }
  bool has(Database const& database, std::uint64_t key) const { return look(database, key).has_value(); }
  std::uint64_t resultOf(Database const& database, std::uint64_t key) const {
    auto const entry = look(database, key);
    return entry ? bitsOf(*entry, database.result, 17) : 0;
  }

  Sluice::BulkTransfer transferOf(Database const& database, std::vector<Entry> const& entries) const {
    for (std::size_t number = 0; number < entries.size(); ++number)
      std::memcpy(dma.bytes() + number * 24, entries[number].data(), 24);
    Sluice::BulkTransfer transfer{Sluice::SchanOpcode::exactMatch,
                                  282,
                                  0,
                                  static_cast<std::uint32_t>(entries.size()),
                                  24,
                                  dma.address()};
    transfer.physicalTableId = database.physicalTable;
    return transfer;
  }
  Sluice::SchanResponse bulk(Database const& database, std::vector<Entry> const& entries) const {
    return answerTo(*chip, transferOf(database, entries));
  }

  Sluice::SchanResponse run(Sluice::FlushPass const& pass, unsigned fap = 0) const {
    Sluice::SchanResponse response;
    chip->flush(fap, pass, response);
    return response;
  }

  // By key, as the chip holds them.
  std::map<std::uint64_t, Entry> entries(Database const& database, unsigned fap = 0) const {
    std::map<std::uint64_t, Entry> found;
    chip->forEachEntry(fap, database.physicalTable, database.tid, [&](auto bytes) {
      Entry entry;
      std::copy(bytes.begin(), bytes.end(), entry.begin());
      EXPECT_TRUE(found.emplace(bitsOf(entry, 9, database.keyBits), entry).second);
    });
    return found;
  }
};

}  // namespace TestSupport
