// Crashes while a table is made, attached, let go of, wiped or removed, and of the recoveries of these.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/VaultProbed/Bases.h"
#include "tests/VaultProbed/CrashExplorer.h"
#include "tests/support/TestStore.h"

namespace CrashTests {
namespace {

using Ops = CrashOps<700>;

class LifecycleCrash : public testing::Test {
 protected:
  // With all six files there.
  LifecycleCrash() : base_(baseOf<Ops>(explorer_.directory(), highUp())) {
    std::filesystem::copy(explorer_.directory() + "/ember", explorer_.directory() + "/control");
    std::filesystem::copy(explorer_.directory() + "/ember", explorer_.directory() + "/corruption-detected");
    base_.files.load(explorer_.directory());
  }
  ~LifecycleCrash() override {
    auto const* const test = testing::UnitTest::GetInstance()->current_test_info();
    explorer_.tell(test->name());
  }

  void kept(std::function<void()> const& call) {
    explorer_.explore("", {base_.model, base_.model, base_.files.generation()}, call);
    EXPECT_GT(explorer_.figures().points, 2U);
  }
  // All that there was is to be lost.
  void lost(std::function<void()> const& call) {
    explorer_.explore("", {{}, {}, base_.files.generation()}, call);
    EXPECT_GT(explorer_.figures().points, 100U);
  }
  void damage(FileImage::File file, std::size_t word, std::uint64_t bits) {
    FileImage damaged = base_.files;
    damaged.wordIs(file, word, damaged.word(file, word) ^ bits);
    if (file == FileImage::owner) damaged.wordIs(file, word + 128, damaged.word(file, word + 128) ^ bits);
    damaged.writeTo(explorer_.directory());
  }

  TestSupport::StoreDir const directory_;
  Explorer<Ops> explorer_{directory_.path(), Recoveries::crash};
  Base base_;
};

TEST_F(LifecycleCrash, WhileATableIsMade) {
  std::filesystem::remove_all(explorer_.directory());
  base_ = {};
  lost([&] { attachedTo<Ops>(explorer_.directory()); });
}

TEST_F(LifecycleCrash, WhileASoundTableIsAttached) {
  kept([&] { attachedTo<Ops>(explorer_.directory(), kMaxSize + 1); });
}

TEST_F(LifecycleCrash, WhileAWriterDetachesAndAttachesAgain) {
  auto const writer = attachedTo<Ops>(explorer_.directory());
  kept([&] {
    writer->detach(false);
    writer->initialize("none");
  });
  EXPECT_EQ(observed(*writer), base_.model);
}

TEST_F(LifecycleCrash, WhileATableIsWipedThatWasLeftInTheMiddleOfAnOperation) {
  damage(FileImage::slots, Vault::SlotTable::kRuntimeFlagsWord, Vault::SlotTable::kCriticalBit);
  lost([&] { attachedTo<Ops>(explorer_.directory()); });
}

TEST_F(LifecycleCrash, WhileATableIsWipedWhoseOwnerFileIsDamaged) {
  damage(FileImage::owner, 3, 1);
  lost([&] { attachedTo<Ops>(explorer_.directory()); });
}

// A crash before the generation is taken back leaves the table as it was, one after it leaves nothing.
TEST_F(LifecycleCrash, WhileAWriterRemovesItsTable) {
  auto const writer = attachedTo<Ops>(explorer_.directory());
  kept([&] { writer->cleanup(); });
  FileImage left;
  left.load(explorer_.directory());
  EXPECT_EQ(left.differenceTo(FileImage()), "");
}

TEST_F(LifecycleCrash, WhileATableIsRemovedThatNobodyHasAttached) {
  kept([&] { writerOf<Ops>(explorer_.directory())->cleanup(); });
  FileImage left;
  left.load(explorer_.directory());
  EXPECT_EQ(left.differenceTo(FileImage()), "");
}

}  // namespace
}  // namespace CrashTests
