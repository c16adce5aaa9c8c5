// The store that is fuzzed, and how the image of its files stands in an input: a byte of switches, the length
// of the slot file in four bytes, the slot file, and the bucket file up to the end.
#pragma once

#include <stdlib.h>

#include <array>
#include <compare>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "Vault/VaultWriter.h"

namespace Fuzz {

// The hash is part of the key, so that an input can have any.
struct ImageKey {
  std::uint32_t number = 0;
  std::uint32_t hashed = 0;

  std::uint32_t hash(std::uint32_t seed) const { return hashed ^ seed; }
  friend auto operator<=>(ImageKey const&, ImageKey const&) = default;
};

struct ImageRecord {
  ImageKey theKey{};
  std::uint32_t content = 0;

  ImageKey const& key() const { return theKey; }
  static std::string_view typeName() { return "Fuzz::ImageRecord"; }
};

using ImageOps = Vault::OpsOf<OrloVault::ValWrap<ImageRecord, ImageKey, &ImageRecord::key, false>>;
using ImageWriter = Vault::VaultWriter<ImageOps>;

// Header fields are made right where they alone would have the files refused.
constexpr std::uint8_t kMendHeaders = 1;
// The image replaces the files of a table that is in use.
constexpr std::uint8_t kWhileInUse = 2;
constexpr std::size_t kHeadOfInput = 5;

class Folder {
 public:
  Folder() : path_("/dev/shm/hwtables-fuzz-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) std::abort();
  }
  Folder(Folder const&) = delete;
  Folder& operator=(Folder const&) = delete;
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string file(std::string const& name) const { return path_ + "/" + name; }
  Mem::RootPath root() const { return {handler(), path_, true}; }
  static Dovel::Platform::DebugHandler handler() { return Dovel::Platform::getDebugHandler("Fuzz", true); }

 private:
  std::string path_;
};

inline Vault::MapDescriptor descriptor() {
  Vault::MapDescriptor made(1000);
  made.localMem = false;
  return made;
}

inline std::string contentOf(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace Fuzz

template <>
struct fmt::formatter<Fuzz::ImageKey> : Dovel::PlainFormatter {
  auto format(Fuzz::ImageKey const& key, fmt::format_context& context) const {
    return fmt::format_to(context.out(), "{}", key.number);
  }
};
