// What becomes of a writer's mapping in a forked child.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>

#include "platform/memory/SharedMemWrapper.h"
#include "tests/support/Files.h"

namespace {

constexpr std::size_t kSize = 4096;

// In the child: whether memory of its own, in the place of the parent's mapping, outlives that mapping's
// object.
bool ownMemoryOutlives(std::optional<Mem::SharedMemWrapper>& inherited, std::byte* base) {
  void* const own =
      ::mmap(base, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  if (own != base) return false;
  *static_cast<int volatile*>(own) = 42;
  inherited.reset();
  unsigned char resident = 0;
  return ::mincore(own, kSize, &resident) == 0 && *static_cast<int volatile*>(own) == 42;
}

TEST(ForkedMapping, IsNotInheritedAndItsEndTakesNothingOfTheChildAlong) {
  TestSupport::TempDir const dir;
  auto const handler = Dovel::Platform::getDebugHandler("ForkedMappingTest", true);
  std::optional<Mem::SharedMemWrapper> mapping;
  mapping.emplace(handler, Mem::RootPath(handler, dir.path(), true), "slots", Mem::CoreDump::asProcess);
  std::byte* const base = mapping->attach(kSize, Mem::Access::readWrite, 0);
  ASSERT_NE(base, nullptr) << mapping->error();
  pid_t const child = ::fork();
  if (child == 0) ::_exit(ownMemoryOutlives(mapping, base) ? 0 : 1);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
