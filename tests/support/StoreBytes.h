// The files of a store written byte by byte, from the description of their format and not by the code that
// writes stores: what that code and its readers are compared with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace TestSupport {

using Bytes = std::vector<std::byte>;

std::uint32_t get32(Bytes const& bytes, std::size_t offset);
void put32(Bytes& bytes, std::size_t offset, std::uint32_t value);

struct StoreBytes {
  struct Record {
    Bytes value;
    std::uint32_t keyHash;  // by the seed below
  };
  struct Plan {
    std::string typeName;
    std::uint32_t valueSize = 0;
    std::uint32_t numSlots = 0;
    std::uint32_t numBuckets = 1;  // a power of two
    std::uint32_t generation = 0x00010002;
    std::uint32_t seed = 0;
  };

  // Record i goes to slot i; the others are on the free list, lowest first. Records of equal hashes are given
  // in the order of their keys.
  StoreBytes(Plan const& plan, std::vector<Record> const& records);

  // Makes the directory's files, the control file too.
  void writeTo(std::string const& directory) const;

  std::size_t slotAt(std::uint32_t id) const;
  std::size_t linkAt(std::uint32_t id) const { return slotAt(id) + 4; }
  std::size_t hashAt(std::uint32_t id) const { return slotAt(id) + 8 + valueSize; }
  static std::size_t headAt(std::uint32_t bucket) { return 24 + std::size_t{bucket} * 8 + 4; }

  std::uint32_t valueSize;
  std::uint32_t slotSize;
  Bytes slots;
  Bytes buckets;
  Bytes ember;

 private:
  void makeHeaders(Plan const& plan, std::size_t records);
  void makeChains(Plan const& plan, std::vector<Record> const& records);
  void makeFreeList(Plan const& plan, std::size_t records);
};

}  // namespace TestSupport
