// Critical tasks that run in the middle of a resize of the buckets.
#include <gmock/gmock.h>

#include <functional>

#include "runtime/TaskSchedulerRoot.h"
#include "tests/support/TestStore.h"

namespace {

using namespace TestSupport;
using testing::HasSubstr;
using Record12 = TestRecord<ChosenKey, 12>;
using Store12 = Store<Record12>;

constexpr std::uint32_t kEnough = 1U << 23;

ChosenKey keyOf(std::uint32_t number) { return {number, number * 2654435761U}; }

class ResizeYield : public testing::Test {
 protected:
  static Vault::MapDescriptor descriptor() {
    auto made = sharedDescriptor(kEnough);
    made.criticalTaskCheck = true;
    return made;
  }

  // Runs the body at every yield.
  void atYields(std::function<void()> body) {
    auto const root = Dovel::schedulerRootDovel();
    timer_ = root->timerIs({}, std::chrono::microseconds(1), std::move(body),
                           TaskSchedulerRoot::Priority::critical);
  }
  void TearDown() override { Dovel::schedulerRootDovel()->timerDel(timer_); }

  // Adds records until the buckets were resized with a yield; the larger the table, the longer it takes.
  void growUntil(bool const& yielded) {
    while (!yielded && members_ < kEnough) store_.write(keyOf(members_++));
    ASSERT_TRUE(yielded);
  }
  std::uint32_t iterated() {
    WriterOf<Record12>::Value value;
    Vault::IterHint hint;
    std::uint32_t count = 0;
    std::uint32_t before = 0;
    for (bool more = store_->first(value, hint); more; more = store_->next(value.key(), value, hint)) {
      std::uint32_t const now = Image::reversed(value.key().chosenHash, 32);
      EXPECT_LE(before, now);
      before = now;
      ++count;
    }
    return count;
  }
  bool finds(std::uint32_t number) {
    bool found = false;
    store_->lookup(keyOf(number), found, nullptr);
    return found;
  }

  Store12 store_{descriptor()};
  std::uint32_t members_ = 0;
  TaskSchedulerRoot::Id timer_ = 0;
};

TEST_F(ResizeYield, LetsLookupsAndIterationsSeeTheWholeTable) {
  bool yielded = false;
  int whole = 0;
  atYields([&] {
    yielded = true;
    for (std::uint32_t at = 0; at < 1000; ++at) {
      std::uint32_t const number = at * 7919U % members_;
      EXPECT_TRUE(finds(number)) << number;
      EXPECT_FALSE(finds(kEnough + at));
    }
    if (whole++ < 3) {
      EXPECT_EQ(iterated(), members_);
    }
  });
  growUntil(yielded);
  EXPECT_EQ(iterated(), members_);
  EXPECT_TRUE(store_->validate());
  whole = 0;
  while (members_ > 0) store_.remove(keyOf(--members_));
  EXPECT_EQ(iterated(), 0U);
}

TEST_F(ResizeYield, ShowsTheOldCountUntilTheNewOneIsPublished) {
  bool yielded = false;
  atYields([&] {
    yielded = true;
    EXPECT_EQ(store_->buckets(), wordAt<std::uint32_t>(bytesOf(store_.file("buckets")).substr(0, 24), 20));
  });
  growUntil(yielded);
}

TEST_F(ResizeYield, KeepsExceptionsOfTasksFromTheResize) {
  bool yielded = false;
  atYields([&] {
    yielded = true;
    throw std::runtime_error("of a task");
  });
  testing::internal::CaptureStderr();
  growUntil(yielded);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("of a task"));
  EXPECT_EQ(store_.image().runtimeFlags(), 0);
  EXPECT_TRUE(store_->validate());
}

TEST_F(ResizeYield, IsNotDoneWhereItIsNotAskedFor) {
  store_->criticalTaskCheckIs(false);
  EXPECT_FALSE(store_->criticalTaskCheck());
  bool yielded = false;
  atYields([&] { yielded = true; });
  while (members_ < 1U << 19) store_.write(keyOf(members_++));
  EXPECT_FALSE(yielded);
}

using ResizeYieldDeathTest = ResizeYield;

TEST_F(ResizeYieldDeathTest, ATaskThatWritesTheSameTableEndsTheProcess) {
  store_.close();
  EXPECT_DEATH(
      {
        store_.open();
        Dovel::schedulerRootDovel()->ownerIs();
        bool yielded = false;
        atYields([&] {
          yielded = true;
          store_.write(keyOf(kEnough));
        });
        growUntil(yielded);
      },
      "Vault reentrancy detected: " + store_.folder().path());
}

}  // namespace
