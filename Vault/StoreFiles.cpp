#include "Vault/StoreFiles.h"

#include <sys/stat.h>

#include <cerrno>

#include "Vault/Util.h"
#include "platform/memory/ControlFile.h"
#include "platform/memory/EmberFile.h"
#include "platform/memory/OwnerFile.h"
#include "platform/memory/WriterLock.h"
#include "runtime/Dovel/Exception.h"

namespace Vault {
namespace {

using VaultCore::BucketTable;

// Enough for every field of a header that stands before slots or heads.
constexpr std::uint64_t kHeaderBytes = SlotTable::kCommonHeaderSize;

bool stands(Mem::RootPath const& rootPath, std::string_view name) {
  struct stat status {};
  return ::lstat(rootPath.fileName(name).data(), &status) == 0;
}

std::uint64_t timeOf(Mem::RootPath const& rootPath, std::string_view name) {
  struct stat status {};
  if (::lstat(rootPath.fileName(name).data(), &status) != 0 || status.st_mtim.tv_sec < 0) return 0;
  return static_cast<std::uint64_t>(status.st_mtim.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(status.st_mtim.tv_nsec);
}

// What a next writer takes for a new owner file.
bool isAbsentOrEmpty(Mem::RootPath const& rootPath, std::string_view name) {
  struct stat status {};
  return ::lstat(rootPath.fileName(name).data(), &status) != 0
             ? errno == ENOENT
             : S_ISREG(status.st_mode) && status.st_size == 0;
}

FileImage imageOf(Mem::RootPath const& rootPath, char const* name, StoreFiles::Extent extent) {
  return FileImage(rootPath.fileName(name),
                   extent == StoreFiles::Extent::whole ? FileImage::kWhole : kHeaderBytes);
}

SlotsImage slotsOf(Mem::RootPath const& rootPath, StoreFiles::Extent extent) {
  return SlotsImage(imageOf(rootPath, SlotTable::kFileName, extent));
}

BucketsImage bucketsOf(Mem::RootPath const& rootPath, StoreFiles::Extent extent) {
  return BucketsImage(imageOf(rootPath, BucketTable::kFileName, extent));
}

SharedMem::OwnerFile ownerFileOf(Mem::RootPath const& rootPath) {
  return {rootPath.debugHandler(), rootPath, false, false};
}

StoreOwner ownerOf(Mem::RootPath const& rootPath) {
  if (isAbsentOrEmpty(rootPath, SharedMem::OwnerFile::FILENAME)) return {};
  SharedMem::OwnerFile const file = ownerFileOf(rootPath);
  try {
    return {.known = true,
            .wiped = file.wiped(),
            .sharedMemType = file.sharedMemType(),
            .pid = file.pid(),
            .startTime = file.startTime(),
            .bootId = file.bootId(),
            .typeName = file.typeName(),
            .socketName = file.wireletInfo().socketName()};
  } catch (Dovel::RuntimeException const&) {
    return {};
  }
}

Dovel::String ownerProblemOf(Mem::RootPath const& rootPath) {
  if (isAbsentOrEmpty(rootPath, SharedMem::OwnerFile::FILENAME)) return {};
  Dovel::String error;
  return ownerFileOf(rootPath).validate(error) ? Dovel::String() : error;
}

}  // namespace

StoreFiles::StoreFiles(Mem::RootPath const& rootPath, Extent extent)
    : rootPath_(rootPath),
      slots_(slotsOf(rootPath, extent)),
      buckets_(bucketsOf(rootPath, extent)),
      generation_(SharedMem::EmberFile(rootPath.debugHandler(), rootPath, false).read()),
      generationTime_(timeOf(rootPath, SharedMem::EmberFile::EMBER_NAME)),
      owner_(ownerOf(rootPath)),
      ownerProblem_(ownerProblemOf(rootPath)),
      control_(stands(rootPath, Mem::Util::Clone::CONTROL_FILENAME)),
      corrupt_(stands(rootPath, Util::kCorruptionFile)),
      locked_(Mem::WriterLock::lockState(rootPath) == Mem::WriterLockState::held),
      numSlotsChanged_(slots_.numSlots() != slotsOf(rootPath, Extent::headers).numSlots()),
      numBucketsChanged_(buckets_.numBuckets() != bucketsOf(rootPath, Extent::headers).numBuckets()) {}

bool StoreFiles::standsIn(Mem::RootPath const& rootPath) {
  return stands(rootPath, SlotTable::kFileName) || stands(rootPath, Mem::Util::Clone::CONTROL_FILENAME);
}

}  // namespace Vault
