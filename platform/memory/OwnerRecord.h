// One of the two records of an owner file, as it stands in the file. A plain value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace SharedMem {

struct OwnerRecord {
  static constexpr std::uint32_t kMagic = 0x776f7468;  // "htow"
  static constexpr std::uint32_t kVersion = 1;
  static constexpr std::size_t kBootIdSize = 40;
  static constexpr std::size_t kSocketNameSize = 108;
  static constexpr std::size_t kTypeNameSize = 256;

  std::uint32_t magic = kMagic;
  std::uint32_t version = kVersion;
  std::uint64_t sequence = 0;
  std::uint32_t wiped = 0;
  std::uint32_t sharedMemType = 0;
  std::int32_t pid = 0;
  std::uint32_t reserved = 0;
  std::uint64_t startTime = 0;    // of the process, in clock ticks since the machine came up
  char bootId[kBootIdSize] = {};  // the texts end with a zero byte
  char socketName[kSocketNameSize] = {};
  char typeName[kTypeNameSize] = {};
  char padding[576] = {};
  std::uint32_t crc = 0;  // CRC-32C of all before it

  // Over the record as it is now.
  std::uint32_t computedCrc() const;
  // Null, or what is wrong with the record in itself.
  char const* problem() const;

  // Cut to what the field holds.
  static void setText(char* field, std::size_t size, std::string_view text);
  static std::string_view text(char const* field, std::size_t size);
};

static_assert(std::is_trivially_copyable_v<OwnerRecord> && sizeof(OwnerRecord) == 1024);
static_assert(offsetof(OwnerRecord, sequence) == 8 && offsetof(OwnerRecord, startTime) == 32);
static_assert(offsetof(OwnerRecord, bootId) == 40 && offsetof(OwnerRecord, socketName) == 80);
static_assert(offsetof(OwnerRecord, typeName) == 188 && offsetof(OwnerRecord, crc) == 1020);

}  // namespace SharedMem
