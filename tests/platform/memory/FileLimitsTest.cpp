// Files where there is no space, no right, or a file system that can't do all.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "platform/memory/EmberFile.h"
#include "platform/memory/OwnerFile.h"
#include "platform/memory/SharedMemWrapper.h"
#include "platform/memory/WriterLock.h"
#include "runtime/Dovel/Exception.h"
#include "tests/platform/memory/Processes.h"
#include "tests/platform/memory/StoreFiles.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/Sanitizers.h"

namespace {

using Mem::Access;
using SharedMem::EmberFile;
using SharedMem::EmberId;
using TestSupport::handler;
using TestSupport::isThere;
using TestSupport::TempDir;

constexpr std::size_t kPage = 4096;

std::string folder() { return std::getenv("FOLDER"); }
Mem::RootPath root() { return TestSupport::rootPath(folder()); }
Mem::SharedMemWrapper mapping(char const* name) {
  return {handler(), root(), name, Mem::CoreDump::asProcess};
}
bool tells(Mem::SharedMemWrapper const& file, char const* text) {
  return file.error().view().find(text) != std::string_view::npos;
}
std::size_t taken(std::string const& path) {
  struct stat status {};
  ::stat(path.c_str(), &status);
  return static_cast<std::size_t>(status.st_blocks) * 512;
}

// Runs the role and says whether it has succeeded, skipping the test where it may not even begin.
void expectSuccess(char const* role) {
  TempDir const dir;
  auto const child = TestSupport::runChild(role, {{"FOLDER", dir.path()}});
  if (child.exitCode == TestSupport::kNoRights) GTEST_SKIP() << "no right to do this on this machine";
  EXPECT_EQ(child.signal, 0);
  EXPECT_EQ(child.exitCode, 0) << child.errors();
}

template <class Exception>
bool throws(auto call) {
  try {
    call();
  } catch (Exception const&) {
    return true;
  }
  return false;
}

// A file that leaves so many pages of the small file system free.
void fillBut(Mem::SharedMemWrapper& filler, std::size_t freePages) {
  std::size_t size = kPage;
  MUST(filler.attach(size, Access::readWrite, 0) != nullptr);
  while (filler.resize(size + kPage) != nullptr) size += kPage;
  MUST(size > freePages * kPage);
  MUST(filler.resize(size - freePages * kPage) != nullptr);
}

void mountSmall() { TestSupport::mountPrivately("tmpfs", "size=64k", folder()); }

void growsInAFullFileSystem() {
  mountSmall();
  auto slots = mapping("slots");
  std::byte* base = slots.attach(2 * kPage, Access::readWrite, 0);
  MUST(base != nullptr);
  std::memset(base, 'x', 2 * kPage);
  for (std::size_t const size : {std::size_t{1} << 20, std::size_t{16} << 20, std::size_t{1} << 46}) {
    MUST(slots.resize(size) == nullptr);
    MUST(tells(slots, "No space left on device"));
    MUST(slots.mappedSize() == 2 * kPage);
    MUST(taken(folder() + "/slots") == 2 * kPage);
    MUST(slots.memSize() == 2 * kPage);
    for (std::size_t i = 0; i < 2 * kPage; ++i) MUST(base[i] == std::byte{'x'});
  }
  base = slots.resize(10 * kPage);
  MUST(base != nullptr);
  std::memset(base, 'y', 10 * kPage);
}
TestSupport::ChildRole const growsInAFullFileSystemRole("growsInAFullFileSystem", growsInAFullFileSystem);

TEST(FileLimits, GrowthInAFullFileSystemIsAnErrorAndLosesNothing) { expectSuccess("growsInAFullFileSystem"); }

void growsWhereNoPagesAheadAreLeft() {
  mountSmall();
  auto slots = mapping("slots");
  std::byte* const base = slots.attach(kPage, Access::readWrite, 16 * kPage);
  MUST(base != nullptr);
  auto filler = mapping("filler");
  fillBut(filler, 3);
  MUST(slots.resize(3 * kPage) == base);
  MUST(slots.memSize() == 3 * kPage && taken(folder() + "/slots") == 3 * kPage);
  std::memset(base, 'x', 3 * kPage);
  MUST(slots.resize(5 * kPage) == nullptr);
  MUST(tells(slots, "No space left on device"));
  MUST(slots.resize(4 * kPage) == base);
  std::memset(base, 'y', 4 * kPage);
}
TestSupport::ChildRole const growsWhereNoPagesAheadAreLeftRole("growsWhereNoPagesAheadAreLeft",
                                                               growsWhereNoPagesAheadAreLeft);

TEST(FileLimits, GrowthTakesWhatItNeedsWhereNoPagesAheadAreLeft) {
  expectSuccess("growsWhereNoPagesAheadAreLeft");
}

void makesAFileInAFullFileSystem() {
  mountSmall();
  auto filler = mapping("filler");
  fillBut(filler, 1);
  for (std::size_t const size : {2 * kPage, std::size_t{4} << 20}) {
    auto slots = mapping("slots");
    MUST(slots.attach(size, Access::readWrite, 0) == nullptr);
    MUST(tells(slots, "No space left on device"));
    MUST(slots.memSize() == 0);
    MUST(slots.attach(kPage, Access::readWrite, 0) != nullptr);
    slots.removeFile();
  }
}
TestSupport::ChildRole const makesAFileInAFullFileSystemRole("makesAFileInAFullFileSystem",
                                                             makesAFileInAFullFileSystem);

TEST(FileLimits, NewFileInAFullFileSystemIsAnErrorAndLeavesNoFile) {
  expectSuccess("makesAFileInAFullFileSystem");
}

void adoptsAHoleInAFullFileSystem() {
  mountSmall();
  auto filler = mapping("filler");
  fillBut(filler, 1);
  TestSupport::writeFile(folder() + "/slots", "x");
  MUST(::truncate((folder() + "/slots").c_str(), 8 * kPage) == 0);
  auto slots = mapping("slots");
  MUST(slots.attach(8 * kPage, Access::readWrite, 0) == nullptr);
  MUST(tells(slots, "No space left on device"));
  MUST(slots.memSize() == 8 * kPage);
}
TestSupport::ChildRole const adoptsAHoleInAFullFileSystemRole("adoptsAHoleInAFullFileSystem",
                                                              adoptsAHoleInAFullFileSystem);

TEST(FileLimits, FileWithHolesThatCantBeFilledIsAnErrorAndNoSignalLater) {
  expectSuccess("adoptsAHoleInAFullFileSystem");
}

void writesOthersInAFullFileSystem() {
  mountSmall();
  auto filler = mapping("filler");
  fillBut(filler, 0);
  EmberFile ember(handler(), root(), false);
  MUST(throws<Dovel::MemoryResourceException>([&] { ember.write(EmberId(7, 7)); }));
  MUST(ember.read() == EmberId());
  MUST(throws<Dovel::MemoryResourceException>([] { SharedMem::OwnerFile(handler(), root(), false); }));
  MUST(filler.resize(kPage) != nullptr);
  ember.write(EmberId(7, 7));
  MUST(SharedMem::OwnerFile(handler(), root(), false).validate());
}
TestSupport::ChildRole const writesOthersInAFullFileSystemRole("writesOthersInAFullFileSystem",
                                                               writesOthersInAFullFileSystem);

TEST(FileLimits, OwnerAndGenerationInAFullFileSystemAreExceptions) {
  expectSuccess("writesOthersInAFullFileSystem");
}

void growsWhereNothingIsAllocatedOrGivenBack() {
  TestSupport::mountPrivately("ramfs", nullptr, folder());
  auto slots = mapping("slots");
  auto reader = mapping("slots");
  MUST(slots.attach(kPage + 1, Access::readWrite, 0) != nullptr);
  std::byte* const base = slots.resize(70 * kPage);
  MUST(base != nullptr);
  MUST(slots.memSize() == 70 * kPage);
  std::memset(base, 'x', 70 * kPage);
  std::byte const* const read = reader.attach(70 * kPage, Access::readOnly, 0);
  MUST(read != nullptr && read[69 * kPage] == std::byte{'x'});
  MUST(slots.resize(kPage) != nullptr);
  MUST(slots.memSize() == 70 * kPage);
  for (std::size_t i = 0; i < 70 * kPage; ++i) MUST(static_cast<char>(read[i]) == (i < kPage ? 'x' : '\0'));
  MUST(slots.resize(80 * kPage) != nullptr);
}
TestSupport::ChildRole const growsWhereNothingIsAllocatedRole("growsWhereNothingIsAllocatedOrGivenBack",
                                                              growsWhereNothingIsAllocatedOrGivenBack);

TEST(FileLimits, FileSystemWithoutAllocationAndHolesWorksAndLateReadersFindZeroes) {
  expectSuccess("growsWhereNothingIsAllocatedOrGivenBack");
}

void growsOverTheSizeLimit() {
  rlimit const limit{8 * kPage, 8 * kPage};
  MUST(::setrlimit(RLIMIT_FSIZE, &limit) == 0);
  auto slots = mapping("slots");
  MUST(slots.attach(16 * kPage, Access::readWrite, 0) == nullptr);
  MUST(tells(slots, "File too large"));
  std::byte* const base = slots.attach(kPage, Access::readWrite, 0);
  MUST(base != nullptr);
  for (std::size_t const size : {9 * kPage, std::size_t{8} << 20}) {
    MUST(slots.resize(size) == nullptr);
    MUST(tells(slots, "File too large"));
  }
  base[kPage - 1] = std::byte{1};
  MUST(slots.resize(8 * kPage) != nullptr);
}
TestSupport::ChildRole const growsOverTheSizeLimitRole("growsOverTheSizeLimit", growsOverTheSizeLimit);

TEST(FileLimits, GrowthOverTheSizeLimitOfFilesIsAnErrorAndNoSignal) {
  expectSuccess("growsOverTheSizeLimit");
}

void writesNothingUnderTheSizeLimit() {
  rlimit const limit{0, 0};
  MUST(::setrlimit(RLIMIT_FSIZE, &limit) == 0);
  MUST(throws<Dovel::MemoryResourceException>(
      [] { EmberFile(handler(), root(), false).write(EmberId(1, 1)); }));
  MUST(throws<Dovel::MemoryResourceException>([] { SharedMem::OwnerFile(handler(), root(), false); }));
}
TestSupport::ChildRole const writesNothingUnderTheSizeLimitRole("writesNothingUnderTheSizeLimit",
                                                                writesNothingUnderTheSizeLimit);

TEST(FileLimits, OwnerAndGenerationOverTheSizeLimitAreExceptionsAndNoSignals) {
  expectSuccess("writesNothingUnderTheSizeLimit");
}

void mapsWithoutAddresses() {
  auto slots = mapping("slots");
  std::byte* const base = slots.attach(kPage, Access::readWrite, 0);
  MUST(base != nullptr);
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  rlim_t const addresses = pages * kPage + (std::size_t{16} << 20);
  rlimit const limit{addresses, addresses};
  MUST(::setrlimit(RLIMIT_AS, &limit) == 0);
  MUST(slots.resize(std::size_t{64} << 20) == nullptr);
  MUST(tells(slots, "Cannot allocate memory"));
  base[kPage - 1] = std::byte{1};
  MUST(taken(folder() + "/slots") <= 4 * kPage);  // the file system's own notes among them
  MUST(slots.resize(2 * kPage) != nullptr);
}
TestSupport::ChildRole const mapsWithoutAddressesRole("mapsWithoutAddresses", mapsWithoutAddresses);

TEST(FileLimits, GrowthThatFindsNoAddressesGivesItsPagesBack) {
  if (HWTABLES_ASAN || HWTABLES_TSAN) GTEST_SKIP() << "the sanitizer takes more addresses than the limit";
  expectSuccess("mapsWithoutAddresses");
}

void usesUnreadableFiles() {
  for (char const* name : {"slots", "ember", "owner", ".writer.lock", ".owner.lock"}) {
    std::string const path = folder() + "/" + name;
    TestSupport::writeFile(path, std::string(kPage, 'x'));
    MUST(::chmod(path.c_str(), 0600) == 0);
  }
  MUST(::chmod(folder().c_str(), 0777) == 0);
  TestSupport::becomeNobody();
  auto slots = mapping("slots");
  MUST(slots.attach(kPage, Access::readOnly, 0) == nullptr && tells(slots, "Permission denied"));
  MUST(slots.attach(kPage, Access::readWrite, 0) == nullptr && tells(slots, "Permission denied"));
  EmberFile ember(handler(), root(), false);
  MUST(ember.read() == EmberId());
  MUST(throws<Dovel::NoPermissionException>([&] { ember.write(EmberId(1, 1)); }));
  SharedMem::OwnerFile owner(handler(), root(), false);
  Dovel::String error;
  MUST(!owner.validate(error) && error.view().find("Permission denied") != std::string_view::npos);
  MUST(throws<Dovel::NoPermissionException>([&] { owner.typeNameIs("t"); }));
  MUST(throws<Dovel::NoPermissionException>([&] { owner.lock(); }));
  MUST(throws<Dovel::CorruptionDetectedException>([&] { owner.typeName(); }));
  MUST(throws<Dovel::NoPermissionException>(
      [&] { Mem::WriterLock::acquireWriterLock(handler(), root(), owner, false); }));
  MUST(Mem::WriterLock::lockState(root()) == Mem::WriterLockState::held);
}
TestSupport::ChildRole const usesUnreadableFilesRole("usesUnreadableFiles", usesUnreadableFiles);

TEST(FileLimits, UnreadableFilesAreToldAsLackOfRights) { expectSuccess("usesUnreadableFiles"); }

}  // namespace
