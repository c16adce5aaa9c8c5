#include "platform/memory/Local.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

#include "tests/platform/memory/StoreFiles.h"
#include "tests/support/Files.h"

namespace {

using Mem::Access;
using Mem::CoreDump;
using TestSupport::handler;

constexpr std::size_t kPage = 4096;
constexpr std::size_t kHuge = std::size_t{2} << 20;

struct Local : testing::TestWithParam<bool> {
  TestSupport::TempDir dir;
  Mem::Local memory{handler(), {handler(), dir.path(), false}, "slots", CoreDump::excluded};

  Local() { memory.useHeapIs(GetParam()); }
};
INSTANTIATE_TEST_SUITE_P(Storage, Local, testing::Bool(),
                         [](auto const& storage) { return storage.param ? "Heap" : "Anonymous"; });

bool isAll(std::byte const* begin, std::size_t size, std::byte value) {
  return std::all_of(begin, begin + size, [=](std::byte byte) { return byte == value; });
}

TEST_P(Local, HasNothingUntilItIsAttached) {
  EXPECT_EQ(memory.memSize(), 0U);
  EXPECT_EQ(memory.resize(kPage), nullptr);
  EXPECT_EQ(memory.storage(), GetParam() ? Mem::Local::HEAP : Mem::Local::ANONYMOUS);
}

TEST_P(Local, IsZeroAlignedAndRoundedToPages) {
  std::byte* const base = memory.attach(kPage + 1, Access::readWrite, 0);
  ASSERT_NE(base, nullptr) << memory.error();
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(base) % kPage, 0U);
  EXPECT_TRUE(isAll(base, 2 * kPage, std::byte{0}));
  EXPECT_EQ(memory.mappedSize(), kPage + 1);
  EXPECT_EQ(memory.memSize(), 2 * kPage);
}

TEST_P(Local, GrowthKeepsWhatStandsAndAddsZeroes) {
  std::byte* base = memory.attach(kPage, Access::readWrite, 0);
  for (std::size_t size = kPage; size < 2 * kHuge; size *= 2) {
    std::memset(base, 'x', size);
    base = memory.resize(2 * size);
    ASSERT_NE(base, nullptr);
    ASSERT_TRUE(isAll(base, size, std::byte{'x'}) && isAll(base + size, size, std::byte{0})) << size;
  }
}

TEST_P(Local, RegrowthAfterAShrinkIsZero) {
  std::memset(memory.attach(8 * kPage, Access::readWrite, 0), 'x', 8 * kPage);
  ASSERT_NE(memory.resize(2 * kPage), nullptr);
  EXPECT_EQ(memory.memSize(), 2 * kPage);
  std::byte const* const base = memory.resize(8 * kPage);
  ASSERT_NE(base, nullptr);
  EXPECT_TRUE(isAll(base, 2 * kPage, std::byte{'x'}));
  EXPECT_TRUE(isAll(base + 2 * kPage, 6 * kPage, std::byte{0}));
}

TEST_P(Local, DetachForgetsAndMakesNoFile) {
  std::memset(memory.attach(kPage, Access::readWrite, 0), 'x', kPage);
  memory.detach();
  memory.detach();
  EXPECT_EQ(memory.memSize(), 0U);
  EXPECT_EQ(memory.mappedSize(), 0U);
  EXPECT_TRUE(isAll(memory.attach(kPage, Access::readWrite, 0), kPage, std::byte{0}));
  memory.removeFile();
  EXPECT_TRUE(dir.files().empty());
}

TEST_P(Local, ImpossibleSizesAreErrorsAndLoseNothing) {
  for (std::size_t const size : {std::size_t{0}, ~std::size_t{0}}) {
    EXPECT_EQ(memory.attach(size, Access::readWrite, 0), nullptr);
    EXPECT_THAT(memory.error().data(), testing::HasSubstr(dir.file("slots")));
  }
  std::byte* const base = memory.attach(kPage, Access::readWrite, 0);
  std::memset(base, 'x', kPage);
  EXPECT_EQ(memory.resize(0), nullptr);
  EXPECT_EQ(memory.resize(~std::size_t{0}), nullptr);
  EXPECT_EQ(memory.mappedSize(), kPage);
  EXPECT_TRUE(isAll(base, kPage, std::byte{'x'}));
}

TEST(LocalStorage, HintKeepsTheBaseOfAnonymousMemory) {
  Mem::Local memory(handler(), {handler(), "/x", false}, "slots", CoreDump::asProcess);
  std::byte* const base = memory.attach(kPage, Access::readWrite, 2 * kHuge);
  ASSERT_NE(base, nullptr);
  EXPECT_EQ(memory.resize(2 * kHuge), base);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(base) % kHuge, 0U);
}

}  // namespace
