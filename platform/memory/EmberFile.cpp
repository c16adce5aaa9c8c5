#include "platform/memory/EmberFile.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>

#include "platform/memory/FileAccess.h"
#include "platform/memory/Probe.h"
#include "platform/memory/SharedWord.h"
#include "runtime/Dovel/Format.h"

namespace SharedMem {
namespace {

// Keeps the word's page mapped for the time of one store.
class MappedWord {
 public:
  explicit MappedWord(int descriptor)
      : page_(::mmap(nullptr, Mem::kPageSize, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0)) {}
  MappedWord(MappedWord const&) = delete;
  MappedWord& operator=(MappedWord const&) = delete;
  ~MappedWord() {
    if (isMapped()) ::munmap(page_, Mem::kPageSize);
  }

  bool isMapped() const { return page_ != MAP_FAILED; }
  Mem::Cell& cell() const { return *static_cast<Mem::Cell*>(page_); }

 private:
  void* const page_;
};

}  // namespace

EmberFile::EmberFile(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
                     bool localMode)
    : Dovel::Debuggable(handler), path_(rootPath.fileName(EMBER_NAME)), localMode_(localMode) {}

// The word is copied and not mapped: nothing that happens to the file meanwhile can then raise a signal.
EmberId EmberFile::read() const {
  if (localMode_) return {};
  Mem::OpenedFile const file = Mem::openFile(path_, Mem::FileUse::read);
  Mem::Cell word = 0;
  if (!file.isOpen() || file.size() < kSize) return {};
  if (Mem::readAt(file.descriptor.number(), &word, sizeof word, 0) != sizeof word) return {};
  return Mem::highHalf(word) == 0 ? EmberId(Mem::lowHalf(word)) : EmberId();
}

void EmberFile::fail(int error, Dovel::String const& text) const {
  DOVEL_TRACE(debugHandler(), 1, "EmberFile", "{}", text);
  Mem::throwFileError("EmberFile", error, text);
}

void EmberFile::write(EmberId id) {
  if (localMode_) return;
  bool const none = id == EmberId();
  Mem::OpenedFile const file = Mem::openFile(path_, none ? Mem::FileUse::write : Mem::FileUse::makeOrWrite);
  if (none && file.error == ENOENT) return;
  if (!file.isOpen()) fail(file.error, file.text);
  int const descriptor = file.descriptor.number();
  if (!Mem::allocate(descriptor, path_, 0, kSize)) {
    fail(errno, fmt::format("cannot allocate {}: {}", path_, std::strerror(errno)));
  }
  MappedWord const word(descriptor);
  if (!word.isMapped()) fail(errno, fmt::format("cannot map {}: {}", path_, std::strerror(errno)));
  Mem::SharedWord::publishGeneration(word.cell(), id.value());
  Mem::probedCall("futimens", path_.data(), [&] { return ::futimens(descriptor, nullptr); });
}

bool EmberFile::validate(EmberId id) const {
  if (localMode_) return true;
  EmberId const found = read();
  if (found == id) return true;
  DOVEL_TRACE(debugHandler(), 0, "EmberFile", "bad generation in {}: {} wanted:{}", path_, found, id);
  return false;
}

Dovel::String EmberFile::mtime() const {
  struct stat status {};
  if (localMode_ || ::lstat(path_.data(), &status) != 0) return "never";
  return fmt::format("{}.{:09}", status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
}

}  // namespace SharedMem
