#include "platform/memory/OwnerRecord.h"

#include <algorithm>
#include <cstring>

#include "platform/memory/Crc32c.h"

namespace SharedMem {

std::uint32_t OwnerRecord::computedCrc() const { return Mem::crc32c(this, offsetof(OwnerRecord, crc)); }

char const* OwnerRecord::problem() const {
  if (magic != kMagic) return "bad magic";
  if (version != kVersion) return "bad version";
  return crc == computedCrc() ? nullptr : "bad checksum";
}

void OwnerRecord::setText(char* field, std::size_t size, std::string_view text) {
  std::memset(field, 0, size);
  std::memcpy(field, text.data(), std::min(text.size(), size - 1));
}

std::string_view OwnerRecord::text(char const* field, std::size_t size) {
  return {field, ::strnlen(field, size)};
}

}  // namespace SharedMem
