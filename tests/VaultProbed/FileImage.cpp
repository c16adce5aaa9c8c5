#include "tests/VaultProbed/FileImage.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "Vault/SlotTable.h"
#include "VaultCore/BucketTable.h"
#include "platform/memory/OwnerRecord.h"

namespace CrashTests {
namespace {

using SharedMem::OwnerRecord;
using Vault::SlotTable;

constexpr std::uint64_t kHigh = 0xffffffff00000000U;

std::string pathOf(std::string const& directory, unsigned file) {
  return directory + "/" + FileImage::kNames[file];
}

[[noreturn]] void fail(char const* what, std::string const& path) {
  throw std::runtime_error(fmt::format("{} {}: {}", what, path, std::strerror(errno)));
}

std::uint64_t scrambled(std::uint64_t word, std::uint64_t factor) {
  word = (word ^ word >> 31) * factor;
  word = (word ^ word >> 29) * 0xbf58476d1ce4e5b9U;
  return word ^ word >> 32;
}

}  // namespace

ImageHash mixed(std::uint64_t place, std::uint64_t word) {
  std::uint64_t const at = scrambled(place + 1, 0x9e3779b97f4a7c15U);
  return {scrambled(word + at, 0x94d049bb133111ebU), scrambled(word ^ at, 0xd6e8feb86659fd93U)};
}

FileImage::File FileImage::fileOf(std::string_view path) {
  std::string_view const name = path.substr(path.rfind('/') + 1);
  for (unsigned file = 0; file < fileCount; ++file)
    if (name == kNames[file]) return static_cast<File>(file);
  return fileCount;
}

void FileImage::load(std::string const& directory) {
  for (unsigned file = 0; file < fileCount; ++file) load(directory, static_cast<File>(file));
}

void FileImage::load(std::string const& directory, File file) {
  Contents& contents = files_[file];
  std::string const path = pathOf(directory, file);
  int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  contents.exists = descriptor >= 0;
  contents.size = 0;
  if (contents.exists) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) fail("fstat", path);
    contents.size = static_cast<std::size_t>(status.st_size);
  }
  contents.words.assign((contents.size + 7) / 8, 0);
  if (contents.size != 0) {
    ssize_t const got = ::pread(descriptor, contents.words.data(), contents.size, 0);
    if (got != static_cast<ssize_t>(contents.size)) fail("read", path);
  }
  if (contents.exists) ::close(descriptor);
  rehash(file);
}

void FileImage::writeTo(std::string const& directory) const {
  for (unsigned file = 0; file < fileCount; ++file) {
    Contents const& contents = files_[file];
    std::string const path = pathOf(directory, file);
    if (!contents.exists) {
      ::unlink(path.c_str());
      continue;
    }
    int const descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (descriptor < 0) fail("open", path);
    auto const size = static_cast<off_t>(contents.size);
    if (::ftruncate(descriptor, size) != 0) fail("ftruncate", path);
    if (::pwrite(descriptor, contents.words.data(), contents.size, 0) != size) fail("write", path);
    ::close(descriptor);
  }
}

void FileImage::wordIs(File file, std::size_t index, std::uint64_t word) {
  Contents& contents = files_[file];
  if (index >= contents.words.size())
    throw std::runtime_error(fmt::format("store behind the end of {}: word {}", kNames[file], index));
  std::uint64_t const before = contents.words[index];
  if (before == word) return;
  contents.hash ^= hashOf(file, index, before);
  contents.hash ^= hashOf(file, index, word);
  contents.words[index] = word;
}

SharedMem::EmberId FileImage::slotGeneration() const {
  return SharedMem::EmberId(low(word(slots, SlotTable::kGenerationWord)));
}

bool FileImage::isCritical() const {
  return (word(slots, SlotTable::kRuntimeFlagsWord) & SlotTable::kCriticalBit) != 0;
}

// The words that differ from run to run without meaning anything by themselves are hashed by hash().
ImageHash FileImage::hashOf(File file, std::size_t index, std::uint64_t word) const {
  if (file == ember || file == owner) return {};
  if (file == slots && (index == SlotTable::kGenerationWord || index == SlotTable::kSeedWord)) word &= kHigh;
  if (file == buckets && index == VaultCore::BucketTable::kGenerationCell) word &= kHigh;
  return word == 0 ? ImageHash() : mixed(index * fileCount + file, word);
}

void FileImage::rehash(File file) {
  Contents& contents = files_[file];
  contents.hash = contents.exists ? mixed(~std::uint64_t{file}, contents.size) : ImageHash();
  for (std::size_t index = 0; index < contents.words.size(); ++index)
    contents.hash ^= hashOf(file, index, contents.words[index]);
  if (file == owner) contents.hash ^= hashOfOwner();
}

ImageHash FileImage::hashOfGeneration(File file, std::size_t index) const {
  std::uint32_t const own = low(word(file, index));
  std::uint64_t const relation = own == 0 ? 0 : own == generation().value() ? 1 : 2;
  return mixed((std::uint64_t{1} << 40) + file, relation);
}

// Two copies, of which the sound one with the higher sequence holds.
ImageHash FileImage::hashOfOwner() {
  Contents const& file = files_[owner];
  std::array<OwnerRecord, 2> records;
  OwnerRecord const* newest = nullptr;
  ImageHash result;
  for (std::size_t i = 0; i < records.size(); ++i) {
    OwnerRecord& record = records[i];
    if (file.size < (i + 1) * sizeof record) continue;
    std::memcpy(static_cast<void*>(&record), file.words.data() + i * sizeof record / 8, sizeof record);
    bool const sound = record.problem() == nullptr;
    if (sound && (newest == nullptr || record.sequence > newest->sequence)) newest = &record;
    std::uint64_t const says = !sound ? 1 : (record.bootId[0] != 0 ? 2U : 0U) | (record.wiped != 0 ? 4U : 0U);
    result ^= mixed((std::uint64_t{1} << 41) + i, says);
  }
  ownerSaysWiped_ = newest != nullptr && newest->wiped != 0;
  ownerIsBad_ = file.size != 0 && (newest == nullptr || newest->bootId[0] == 0);
  result ^= mixed(std::uint64_t{1} << 42, (ownerSaysWiped_ ? 1U : 0U) | (ownerIsBad_ ? 2U : 0U));
  return result;
}

FileImage FileImage::tornTowards(FileImage const& after, File file, std::size_t words) const {
  FileImage torn = *this;
  torn.files_[file] = after.files_[file];
  std::vector<std::uint64_t>& mixture = torn.files_[file].words;
  for (std::size_t index = words; index < mixture.size(); ++index) mixture[index] = word(file, index);
  torn.rehash(file);
  return torn;
}

ImageHash FileImage::hash() const {
  ImageHash result;
  for (Contents const& contents : files_) result ^= contents.hash;
  result ^= hashOfGeneration(ember, 0);
  result ^= hashOfGeneration(slots, SlotTable::kGenerationWord);
  result ^= hashOfGeneration(buckets, VaultCore::BucketTable::kGenerationCell);
  return result;
}

std::string FileImage::differenceTo(FileImage const& other) const {
  for (unsigned file = 0; file < fileCount; ++file) {
    Contents const& mine = files_[file];
    Contents const& its = other.files_[file];
    if (mine.exists != its.exists || mine.size != its.size)
      return fmt::format("{}: {} bytes and {}", kNames[file], mine.size, its.size);
    for (std::size_t index = 0; index < mine.words.size(); ++index)
      if (mine.words[index] != its.words[index])
        return fmt::format("{}: byte {}: {:#x} and {:#x}", kNames[file], index * 8, mine.words[index],
                           its.words[index]);
  }
  return {};
}

}  // namespace CrashTests
