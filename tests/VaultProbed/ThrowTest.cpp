// Exceptions, instead of crashes, out of every store and every call of the store: the writer is then given
// up, and the next one has to find a table that is either complete or wiped.
#include <gtest/gtest.h>

#include <exception>
#include <filesystem>
#include <functional>

#include "tests/VaultProbed/Bases.h"
#include "tests/support/TestStore.h"

namespace CrashTests {
namespace {

using Ops = CrashOps<700>;

struct Thrown : std::exception {
  char const* what() const noexcept override { return "thrown by the test"; }
};

// Throws at the n-th store or call, from 0.
class ThrowingProbe final : public Mem::Probe {
 public:
  explicit ThrowingProbe(std::uint64_t at) : left_(at) {}

  void store(std::uint64_t& cell, std::uint64_t value) override {
    // What leaves the critical section may be a destructor, which stores and does nothing else.
    if (value != (cell & ~Vault::SlotTable::kCriticalBit) || value == cell) count();
  }
  void beforeCall(char const* /*call*/, char const* /*file*/) override { count(); }
  void afterCall(char const* /*call*/, char const* /*file*/) override { count(); }

 private:
  void count() {
    if (left_-- == 0) throw Thrown();
  }

  std::uint64_t left_;
};

class Throw : public testing::Test {
 protected:
  std::string directory() const { return directory_.path() + "/table"; }

  // Has the call throw at each of its stores and calls. `begin` brings about what it starts from, which is
  // what it needs a writer for, if any.
  using Begin = std::function<std::unique_ptr<Vault::VaultWriter<Ops>>()>;
  using Call = std::function<void(Vault::VaultWriter<Ops>&)>;

  std::uint64_t everywhere(std::string const& what, Expectation const& expected, Begin const& begin,
                           Call const& call) {
    for (std::uint64_t at = 0; !HasFailure(); ++at) {
      bool thrown = false;
      {
        auto const writer = begin();
        ThrowingProbe probe(at);
        ProbeScope const watching(&probe);
        try {
          call(*writer);
        } catch (Thrown const&) {
          thrown = true;
        }
        Mem::probe = nullptr;
      }
      FileImage left;
      left.load(directory());
      Verdict const verdict = judge<Ops>(left, expected, directory());
      EXPECT_EQ(verdict.reproach, "") << what << ", thrown at store or call " << at;
      if (!thrown) return at;
    }
    return 0;
  }

  Begin attachedWith(Base const& base) {
    return [this, &base] {
      base.files.writeTo(directory());
      return attachedTo<Ops>(directory());
    };
  }

  void outOfEveryOperationOn(std::vector<Operation> const& from) {
    Base const base = baseOf<Ops>(directory(), from);
    for (Operation const& operation : operationsAt(1)) {
      Expectation expected{base.model, base.model, base.files.generation()};
      expected.after.apply(operation);
      everywhere(operation.text(), expected, attachedWith(base),
                 [&](auto& writer) { applyTo(writer, operation); });
    }
  }

  TestSupport::StoreDir const directory_;
};

TEST_F(Throw, OutOfTheCopyOfAValueLeavesTheCriticalFlagAndTheNextAttachWipes) {
  // The third store of an update is one of the copy to the lookaside slot, the 100th one to the slot.
  for (std::uint64_t at : {3U, 100U}) {
    Base const base = baseOf<Ops>(directory(), full());
    auto writer = attachedTo<Ops>(directory());
    ThrowingProbe probe(at);
    {
      ProbeScope const watching(&probe);
      EXPECT_THROW(applyTo(*writer, {Operation::write, 0, 1}), Thrown);
    }
    EXPECT_EQ(writer->slotTable().header().runtimeFlags(), 1U);
    writer.reset();
    writer = attachedTo<Ops>(directory());
    EXPECT_EQ(observed(*writer), Model());
    EXPECT_EQ(writer->emberId(), base.files.generation().incremented());
  }
}

TEST_F(Throw, OutOfAnyStoreOfAnOperationOnAnEmptyTable) { outOfEveryOperationOn({}); }

TEST_F(Throw, OutOfAnyStoreOfAnOperationOnAFullTable) { outOfEveryOperationOn(full()); }

TEST_F(Throw, OutOfAnyStoreOfAnOperationWhereARemovalMovesSlots) { outOfEveryOperationOn(highUp()); }

TEST_F(Throw, OutOfTheMakingOfATable) {
  std::uint64_t const places = everywhere(
      "initialize", {},
      [this] {
        std::filesystem::remove_all(directory());
        return writerOf<Ops>(directory());
      },
      [](auto& writer) { writer.initialize("none"); });
  EXPECT_GT(places, 100U);
}

TEST_F(Throw, OutOfTheAttachOfASoundTable) {
  Base const base = baseOf<Ops>(directory(), highUp());
  std::uint64_t const places = everywhere(
      "initialize", {base.model, base.model, base.files.generation()},
      [&] {
        base.files.writeTo(directory());
        return writerOf<Ops>(directory(), kMaxSize + 1);
      },
      [](auto& writer) { writer.initialize("none"); });
  EXPECT_GT(places, 5U);
}

TEST_F(Throw, OutOfTheWipeOfATable) {
  FileImage damaged = baseOf<Ops>(directory(), highUp()).files;
  constexpr std::size_t kWord = Vault::SlotTable::kRuntimeFlagsWord;
  damaged.wordIs(FileImage::slots, kWord,
                 damaged.word(FileImage::slots, kWord) | Vault::SlotTable::kCriticalBit);
  std::uint64_t const places = everywhere(
      "initialize", {{}, {}, damaged.generation()},
      [&] {
        damaged.writeTo(directory());
        return writerOf<Ops>(directory());
      },
      [](auto& writer) { writer.initialize("none"); });
  EXPECT_GT(places, 100U);
}

TEST_F(Throw, OutOfADetach) {
  Base const base = baseOf<Ops>(directory(), highUp());
  everywhere("detach", {base.model, base.model, base.files.generation()}, attachedWith(base),
             [](auto& writer) { writer.detach(false); });
}

TEST_F(Throw, OutOfTheRemovalOfATable) {
  Base const base = baseOf<Ops>(directory(), highUp());
  std::uint64_t const places = everywhere("cleanup", {base.model, base.model, base.files.generation()},
                                          attachedWith(base), [](auto& writer) { writer.cleanup(); });
  EXPECT_GT(places, 5U);
}

}  // namespace
}  // namespace CrashTests
