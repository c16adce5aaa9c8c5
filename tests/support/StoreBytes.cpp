#include "tests/support/StoreBytes.h"

#include <algorithm>

#include "tests/support/Files.h"

namespace TestSupport {
namespace {

constexpr std::uint32_t kEnd = 0x80000000;
constexpr std::uint32_t kNil = 0xbfffffff;

std::uint32_t reversed(std::uint32_t word, unsigned bits) {
  std::uint32_t result = 0;
  for (unsigned bit = 0; bit < bits; ++bit) result |= (word >> bit & 1) << (bits - 1 - bit);
  return result;
}

std::string textOf(Bytes const& bytes) {
  std::string text;
  for (std::byte const byte : bytes) text.push_back(static_cast<char>(byte));
  return text;
}

}  // namespace

std::uint32_t get32(Bytes const& bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (unsigned i = 0; i < 4; ++i) value |= std::to_integer<std::uint32_t>(bytes.at(offset + i)) << 8 * i;
  return value;
}

void put32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
  for (unsigned i = 0; i < 4; ++i) bytes.at(offset + i) = static_cast<std::byte>(value >> 8 * i);
}

StoreBytes::StoreBytes(Plan const& plan, std::vector<Record> const& records)
    : valueSize(plan.valueSize),
      slotSize((plan.valueSize + 16 + 7) / 8 * 8),
      slots(608 + slotSize + std::size_t{plan.numSlots} * slotSize),
      buckets(24 + std::size_t{plan.numBuckets} * 8),
      ember(64) {
  makeHeaders(plan, records.size());
  makeChains(plan, records);
  makeFreeList(plan, records.size());
}

std::size_t StoreBytes::slotAt(std::uint32_t id) const { return 608 + (std::size_t{id} + 1) * slotSize; }

void StoreBytes::makeHeaders(Plan const& plan, std::size_t records) {
  put32(slots, 0, 0x6c737468);
  put32(slots, 4, 608 | 1 << 16);
  put32(slots, 8, valueSize);
  put32(slots, 12, slotSize);
  put32(slots, 16, plan.generation);
  put32(slots, 20, plan.numSlots);  // capacity
  put32(slots, 24, plan.numSlots);  // maximum size
  put32(slots, 28, valueSize);
  for (std::size_t i = 0; i < plan.typeName.size(); ++i)
    slots.at(36 + i) = static_cast<std::byte>(plan.typeName[i]);
  put32(slots, 564, static_cast<std::uint32_t>(records));
  put32(slots, 572, plan.numSlots);
  put32(slots, 576, plan.seed);
  put32(slots, 588, plan.numSlots);
  put32(slots, 592, static_cast<std::uint32_t>(records));
  put32(slots, 612, kNil);
  put32(buckets, 0, 0x6b627468);
  put32(buckets, 4, 8);
  put32(buckets, 8, plan.generation);
  put32(buckets, 20, plan.numBuckets);
  put32(ember, 0, plan.generation);
}

// From the last bucket in the order of iteration to the first, and in each from the last record to the first.
void StoreBytes::makeChains(Plan const& plan, std::vector<Record> const& records) {
  std::vector<std::uint32_t> order(records.size());
  for (std::uint32_t id = 0; id < order.size(); ++id) order[id] = id;
  std::ranges::stable_sort(order, {}, [&](std::uint32_t id) { return reversed(records[id].keyHash, 32); });
  unsigned bits = 0;
  while (1u << bits < plan.numBuckets) ++bits;
  std::uint32_t next = kNil;
  for (std::uint32_t place = plan.numBuckets; place-- > 0;) {
    std::uint32_t const bucket = reversed(place, bits);
    while (!order.empty() && records[order.back()].keyHash % plan.numBuckets == bucket) {
      std::uint32_t const id = order.back();
      order.pop_back();
      put32(slots, slotAt(id), 5);  // a sequence of an occupied slot
      put32(slots, linkAt(id), next);
      std::ranges::copy(records[id].value, slots.begin() + static_cast<std::ptrdiff_t>(slotAt(id) + 8));
      put32(slots, hashAt(id), reversed(records[id].keyHash, 32));
      next = id;
    }
    put32(buckets, headAt(bucket), next);
    next = kEnd | bucket;
  }
}

void StoreBytes::makeFreeList(Plan const& plan, std::size_t records) {
  std::uint32_t next = kNil;
  for (std::uint32_t id = plan.numSlots; id-- > records;) {
    put32(slots, slotAt(id), 4);
    put32(slots, linkAt(id), next);
    next = id;
  }
  put32(slots, 568, next);
}

void StoreBytes::writeTo(std::string const& directory) const {
  writeFile(directory + "/slots", textOf(slots));
  writeFile(directory + "/buckets", textOf(buckets));
  writeFile(directory + "/ember", textOf(ember));
  writeFile(directory + "/control", "");
}

}  // namespace TestSupport
