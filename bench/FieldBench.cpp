// Fields of records beside shifts and masks written by hand on the same bytes, and the hash of each shape of
// key.
#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <vector>

#include "LoamSharedHwTables/Qumran3a/EsemFodoPortCvidEm.h"
#include "LoamSharedHwTables/Qumran3a/Ip4UdpTtMpIsemHwEm.h"
#include "LoamSharedHwTables/Qumran3a/IpkgvHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"
#include "LoamSharedHwTables/Qumran3a/SmallAdsHwDirect.h"
#include "LoamSharedHwTables/Qumran3a/TcamHwDirect.h"

namespace {

using namespace bcm88490_a0;

// So many that a loop over them measures the access and not the loop, and so few that they stay in the first
// cache.
constexpr std::int64_t kRecords = 256;

// As large as the record, with the row at the same place: both are walked in the same steps.
template <class Entry, std::size_t Size>
struct Bytes {
  std::array<std::uint8_t, sizeof(Entry) - Size> key;
  std::array<std::uint8_t, Size> data;
};

std::uint64_t load64(std::uint8_t const* from) {
  std::uint64_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}
void store64(std::uint8_t* to, std::uint64_t word) { std::memcpy(to, &word, sizeof word); }
std::uint32_t load32(std::uint8_t const* from) {
  std::uint32_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}
void store32(std::uint8_t* to, std::uint32_t word) { std::memcpy(to, &word, sizeof word); }

// One field: how the record reads and writes it, and how one would by hand.
struct MplsLabel {  // 20 bits from bit 9
  static constexpr char name[] = "20_bits";
  using Entry = MplsIsemHwEm::Entry;
  using Hand = Bytes<Entry, 24>;
  static std::uint64_t get(Entry const& entry) { return entry.mplsLabel().value(); }
  static void set(Entry& entry, std::uint64_t value) {
    entry.mplsLabelIs(Orlo::U20::fromBits(value & 0xfffff));
  }
  static std::uint64_t get(Hand const& hand) { return load32(hand.data.data()) >> 9 & 0xfffff; }
  static void set(Hand& hand, std::uint64_t value) {
    store32(hand.data.data(),
            (load32(hand.data.data()) & ~(0xfffffU << 9)) | static_cast<std::uint32_t>(value & 0xfffff) << 9);
  }
};

struct MplsBos {  // bit 29
  static constexpr char name[] = "1_bit";
  using Entry = MplsIsemHwEm::Entry;
  using Hand = Bytes<Entry, 24>;
  static std::uint64_t get(Entry const& entry) { return entry.mplsBos().value(); }
  static void set(Entry& entry, std::uint64_t value) { entry.mplsBosIs(Orlo::U1::fromBits(value & 1)); }
  static std::uint64_t get(Hand const& hand) { return hand.data[3] >> 5 & 1; }
  static void set(Hand& hand, std::uint64_t value) {
    hand.data[3] = static_cast<std::uint8_t>((hand.data[3] & ~0x20U) | (value & 1) << 5);
  }
};

struct EsemKey {  // 39 bits from bit 9
  static constexpr char name[] = "39_bits";
  using Entry = EsemFodoPortCvidEm::Entry;
  using Hand = Bytes<Entry, 24>;
  static constexpr std::uint64_t kMask = 0x7fffffffff;
  static std::uint64_t get(Entry const& entry) { return entry.key().value(); }
  static void set(Entry& entry, std::uint64_t value) { entry.keyIs(Orlo::U39::fromBits(value & kMask)); }
  static std::uint64_t get(Hand const& hand) { return load64(hand.data.data() + 1) >> 1 & kMask; }
  static void set(Hand& hand, std::uint64_t value) {
    store64(hand.data.data() + 1, (load64(hand.data.data() + 1) & ~(kMask << 1)) | (value & kMask) << 1);
  }
};

struct KeyGenVar {  // 64 bits from bit 3: nine bytes
  static constexpr char name[] = "64_bits_in_9_bytes";
  using Entry = IpkgvHwDirect::Entry;
  using Hand = Bytes<Entry, 12>;
  static std::uint64_t get(Entry const& entry) { return entry.keyGenVar(); }
  static void set(Entry& entry, std::uint64_t value) { entry.keyGenVarIs(value); }
  static std::uint64_t get(Hand const& hand) {
    return load64(hand.data.data()) >> 3 | std::uint64_t{hand.data[8]} << 61;
  }
  static void set(Hand& hand, std::uint64_t value) {
    store64(hand.data.data(), (load64(hand.data.data()) & 7) | value << 3);
    hand.data[8] = static_cast<std::uint8_t>((hand.data[8] & 0xf8U) | value >> 61);
  }
};

template <class Field, class Record>
void getField(benchmark::State& state) {
  std::vector<Record> records(kRecords);
  std::uint64_t start = 0;
  for (Record& record : records) Field::set(record, start += 0x9e3779b97f4a7c15);
  for (auto _ : state) {
    for (Record const& record : records) {
      std::uint64_t value = Field::get(record);
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}

template <class Field, class Record>
void setField(benchmark::State& state) {
  std::vector<Record> records(kRecords);
  std::uint64_t value = 1;
  for (auto _ : state) {
    for (Record& record : records) {
      Field::set(record, value);
      value += 0x9e3779b97f4a7c15;
      benchmark::DoNotOptimize(record);
    }
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}

template <class Key, class MakeKey>
void hashKeys(benchmark::State& state, MakeKey makeKey) {
  std::vector<Key> keys;
  for (std::uint32_t i = 0; i < kRecords; ++i) keys.push_back(makeKey(i));
  for (auto _ : state) {
    for (Key const& key : keys) {
      std::uint32_t hash = key.hash(0x1234);
      benchmark::DoNotOptimize(hash);
    }
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}

template <class Field>
void registerField() {
  std::string const size = Field::name;
  benchmark::RegisterBenchmark(("field/get/hwtables/" + size).c_str(),
                               getField<Field, typename Field::Entry>);
  benchmark::RegisterBenchmark(("field/get/by_hand/" + size).c_str(), getField<Field, typename Field::Hand>);
  benchmark::RegisterBenchmark(("field/set/hwtables/" + size).c_str(),
                               setField<Field, typename Field::Entry>);
  benchmark::RegisterBenchmark(("field/set/by_hand/" + size).c_str(), setField<Field, typename Field::Hand>);
}

template <class Key, class MakeKey>
void registerHash(char const* shape, MakeKey makeKey) {
  benchmark::RegisterBenchmark((std::string("key_hash/hash/hwtables/") + shape).c_str(),
                               [makeKey](benchmark::State& state) { hashKeys<Key>(state, makeKey); });
}

[[maybe_unused]] bool const registered = [] {
  registerField<MplsBos>();
  registerField<MplsLabel>();
  registerField<EsemKey>();
  registerField<KeyGenVar>();
  registerHash<SmallAdsHwDirect::EntryKey>("value",
                                           [](std::uint32_t i) { return SmallAdsHwDirect::EntryKey(i); });
  registerHash<TcamHwDirect::EntryKey>("array", [](std::uint32_t i) { return TcamHwDirect::EntryKey(1, i); });
  registerHash<MplsIsemHwEm::EntryKey>("2_fields",
                                       [](std::uint32_t i) { return MplsIsemHwEm::EntryKey(i, 1); });
  registerHash<Ip4UdpTtMpIsemHwEm::EntryKey>("3_fields", [](std::uint32_t i) {
    return Ip4UdpTtMpIsemHwEm::EntryKey(3, i, static_cast<std::uint16_t>(i));
  });
  return true;
}();

}  // namespace
