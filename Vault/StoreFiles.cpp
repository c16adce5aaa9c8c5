#include "Vault/StoreFiles.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "runtime/Dovel/Format.h"

namespace Vault {
namespace {

constexpr char kEmberFile[] = "ember";
constexpr char kControlFile[] = "control";
constexpr char kCorruptionFile[] = "corruption-detected";
constexpr char kWriterLockFile[] = ".writer.lock";

// Enough for every field of a header that stands before the slots or heads.
constexpr std::uint64_t kHeaderBytes = SlotTable::kCommonHeaderSize;

}  // namespace

StoreReadException::~StoreReadException() = default;
void StoreReadException::throwException(Dovel::String const& message) { throw StoreReadException(message); }

class StoreFiles::Directory {
 public:
  explicit Directory(Dovel::String const& path) : fd_(::open(path.data(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    if (fd_ < 0)
      DOVEL_THROW(StoreReadException, "StoreFiles", "cannot open {}: {}", path, std::strerror(errno));
  }
  Directory(Directory const&) = delete;
  Directory& operator=(Directory const&) = delete;
  ~Directory() { ::close(fd_); }

  FileImage read(char const* name, Extent extent = Extent::headers) const {
    return {fd_, name, extent == Extent::whole ? FileImage::kWhole : kHeaderBytes};
  }

  // Asks for the lock's state and never takes it: even for an instant that would turn a writer away.
  bool isLocked() const {
    int const file =
        ::openat(fd_, kWriterLockFile, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (file < 0) return false;
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    bool const held = ::fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    ::close(file);
    return held;
  }

 private:
  int const fd_;
};

StoreFiles::StoreFiles(Dovel::String directory, Extent extent)
    : StoreFiles(directory, Directory(directory), extent) {}

// Members are read in the order of their declaration, and the counts once more after all of them.
StoreFiles::StoreFiles(Dovel::String directory, Directory const& open, Extent extent)
    : directory_(std::move(directory)),
      slots_(open.read(SlotTable::kFileName, extent)),
      buckets_(open.read(VaultCore::BucketTable::kFileName, extent)),
      ember_(open.read(kEmberFile)),
      control_(open.read(kControlFile).exists()),
      corrupt_(open.read(kCorruptionFile).exists()),
      locked_(open.isLocked()),
      numSlotsChanged_(slots_.numSlots() != SlotsImage(open.read(SlotTable::kFileName)).numSlots()),
      numBucketsChanged_(buckets_.numBuckets() !=
                         BucketsImage(open.read(VaultCore::BucketTable::kFileName)).numBuckets()) {}

}  // namespace Vault
