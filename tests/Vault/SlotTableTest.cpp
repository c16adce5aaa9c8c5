// The slot file: its bytes, how it is attached, grows and shrinks.
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include "Vault/TableFullException.h"
#include "tests/support/Message.h"
#include "tests/support/TestStore.h"

namespace {

using namespace TestSupport;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Record32 = TestRecord<ChosenKey, 32>;
using Store32 = Store<Record32>;
// A page holds one slot of these and two of those.
using LargeStore = Store<TestRecord<ChosenKey, 2000>>;
using Store700 = Store<TestRecord<ChosenKey, 700>>;

template <class AnyStore>
void fill(AnyStore& store, std::uint32_t from, std::uint32_t to) {
  for (std::uint32_t number = from; number < to; ++number) store.write({number, number * 2654435761U});
}

TEST(SlotFileLayout, OfANewTable) {
  Store32 store(sharedDescriptor(500));
  Image const image = store.image();
  EXPECT_EQ(image.head32(0), 0x6c737468U);
  EXPECT_EQ(wordAt<std::uint16_t>(image.slots(), 4), 608);
  EXPECT_EQ(wordAt<std::uint16_t>(image.slots(), 6), 1);
  EXPECT_EQ(image.head32(8), 32U);
  EXPECT_EQ(image.head32(12), 48U);
  EXPECT_EQ(image.ember(), store->emberId().value());
  EXPECT_EQ(image.head32(20), 64U);
  EXPECT_EQ(image.head32(24), 500U);
  EXPECT_EQ(image.head32(28), 32U);
  EXPECT_EQ(image.head32(32), 0U);
  std::string const name = "TestSupport::TestRecord";
  EXPECT_EQ(image.slots().substr(36, 512), name + std::string(512 - name.size(), '\0'));
  EXPECT_EQ(image.slots().substr(548, 16), std::string(16, '\0'));
  EXPECT_EQ(image.occupied(), 0U);
  EXPECT_EQ(image.freeList(), 0U);
  EXPECT_EQ(image.peak(), 64U);
  EXPECT_LT(image.seed(), 0x7fffffffU);
  EXPECT_EQ(image.seed(), store->hashSeed());
  EXPECT_EQ(image.watermark(), 0U);
  EXPECT_EQ(image.numSlots(), 64U);
  EXPECT_EQ(image.largest(), 0U);
  EXPECT_EQ(image.head32(596), 0U);
  EXPECT_EQ(image.scratchpad(), 0U);
  EXPECT_EQ(image.lookasideLink(), (Image::Link{0, Image::kNil}));
  EXPECT_EQ(image.lookasideValue(), std::string(32, '\0'));
  EXPECT_EQ(image.lookasideHash(), 0U);
}

TEST(SlotFileLayout, FreeListRunsUpwardsAndEndsInNil) {
  Store32 store;
  Image const image = store.image();
  for (std::uint32_t id = 0; id < 64; ++id)
    EXPECT_EQ(image.link(id), (Image::Link{4, id == 63 ? Image::kNil : id + 1})) << id;
  EXPECT_EQ(image.slots().substr(image.offsetOf(5) + 8, 40), std::string(40, '\0'));
}

TEST(SlotFileLayout, OfARecord) {
  Store32 store;
  Record32 const record = Record32::of({7, 0x12345678}, 0xaabbccdd);
  store->write(record, true);
  Image const image = store.image();
  EXPECT_EQ(image.offsetOf(0), 656U);
  EXPECT_EQ(image.link(0), (Image::Link{4 + 4 + 4 + 1, Image::kNil}));
  EXPECT_EQ(image.slots().substr(664, 32), std::string(reinterpret_cast<char const*>(&record), 32));
  EXPECT_EQ(wordAt<std::uint32_t>(image.slots(), 656 + 40), 0x1e6a2c48U);  // 0x12345678 mirrored
  EXPECT_EQ(wordAt<std::uint32_t>(image.slots(), 656 + 44), 0U);
  EXPECT_EQ(image.freeList(), 1U);
  EXPECT_EQ(image.occupied(), 1U);
  EXPECT_EQ(image.largest(), 1U);
}

TEST(SlotFileLayout, ValueThatIsNoMultipleOfEightIsFollowedByItsHashAndSlotsStayAligned) {
  Store<TestRecord<ChosenKey, 20>> store;
  store.write({1, 0x80000001}, 0x01020304);
  store.write({2, 0x00000001}, 0x05060708);
  std::string const slots = bytesOf(store.file("slots"));
  EXPECT_EQ(wordAt<std::uint32_t>(slots, 12), 40U);
  EXPECT_EQ(wordAt<std::uint32_t>(slots, 648 + 8), 1U);
  EXPECT_EQ(wordAt<std::uint32_t>(slots, 648 + 28), 0x80000001U);
  EXPECT_EQ(wordAt<std::uint32_t>(slots, 648 + 40 + 8), 2U);
  EXPECT_EQ(wordAt<std::uint32_t>(slots, 648 + 40 + 28), 0x80000000U);
  EXPECT_EQ(slots.substr(648 + 32, 8), std::string(8, '\0'));
  EXPECT_EQ(store.image().expectSound(), 2U);
}

TEST(SlotFileLayout, LargestOccupiedStaysWhereItWas) {
  Store32 store;
  fill(store, 0, 5);
  for (std::uint32_t number = 0; number < 5; ++number) store.remove({number, number * 2654435761U});
  EXPECT_EQ(store.image().largest(), 5U);
  EXPECT_EQ(store.image().occupied(), 0U);
}

TEST(SlotFileAttach, ZeroLengthFileCountsAsNewWhateverTheOwnerFileSays) {
  Store32 store;
  auto const ember = store->emberId();
  store.close();
  std::filesystem::resize_file(store.file("slots"), 0);
  std::string const traces = tracesOf("0-2", [&] { store.open(); });
  EXPECT_THAT(traces, HasSubstr("to new file slots"));
  EXPECT_THAT(traces, HasSubstr("slotsAttached:1"));
  EXPECT_THAT(traces, HasSubstr("expectReattach: true, attachResult: 1"));
  EXPECT_EQ(store->emberId(), ember.incremented());
}

TEST(SlotFileAttach, FileLargerThanItsSlotsNeedIsAcceptedAndKeepsItsLength) {
  Store32 store;
  fill(store, 0, 3);
  auto const ember = store->emberId();
  store.close();
  std::filesystem::resize_file(store.file("slots"), 12345);
  std::string const traces = tracesOf("0-2", [&] { store.open(); });
  EXPECT_THAT(traces, HasSubstr("to existing slots"));
  EXPECT_EQ(store->emberId(), ember);
  EXPECT_EQ(store->members(), 3U);
  EXPECT_EQ(std::filesystem::file_size(store.file("slots")), 12345U);
}

TEST(SlotFileAttach, FileOneByteShorterThanItsSlotsNeedIsRefused) {
  Store32 store;
  fill(store, 0, 3);
  auto const ember = store->emberId();
  store.close();
  std::size_t const needed = 656 + 64 * 48;
  std::filesystem::resize_file(store.file("slots"), needed);
  store.reopen();
  EXPECT_EQ(store->emberId(), ember);
  EXPECT_EQ(store->members(), 3U);
  store.close();
  std::filesystem::resize_file(store.file("slots"), needed - 1);
  std::string const traces = tracesOf("0-2", [&] { store.open(); });
  EXPECT_THAT(traces, HasSubstr("bad shmem size:3727 wanted:3728 for 64 slots"));
  EXPECT_THAT(traces, HasSubstr("slotsAttached:8"));
  EXPECT_EQ(store->emberId(), ember.incremented());
}

TEST(SlotFileAttach, FileShorterThanItsHeaderIsRefused) {
  Store32 store;
  store.close();
  std::filesystem::resize_file(store.file("slots"), 655);
  std::string const traces = tracesOf("0", [&] { store.open(); });
  EXPECT_THAT(traces, HasSubstr("bad header file size: 655 wanted:656"));
}

TEST(SlotFileAttach, FilesThatEndWithinAPageGrowWithTheirTable) {
  LargeStore store;
  fill(store, 0, 1);
  auto const ember = store->emberId();
  store.close();
  std::filesystem::resize_file(store.file("slots"), 2624 + 2016);
  std::filesystem::resize_file(store.file("buckets"), 24 + 8);
  store.open();
  EXPECT_EQ(store->emberId(), ember);
  EXPECT_EQ(std::filesystem::file_size(store.file("slots")), 2624U + 2016U);
  fill(store, 1, 2);
  EXPECT_TRUE(store->validate());
  store.reopen();
  EXPECT_EQ(store->emberId(), ember);
  EXPECT_EQ(store->members(), 2U);
}

struct HeaderDamage {
  char const* name;
  std::size_t offset;
  std::uint32_t word;
};
void PrintTo(HeaderDamage const& damage, std::ostream* out) { *out << damage.name; }

class SlotFileHeader : public testing::TestWithParam<HeaderDamage> {};

TEST_P(SlotFileHeader, ThatSaysSomethingElseIsRefused) {
  Store32 store;
  fill(store, 0, 3);
  store.close();
  poke32(store.file("slots"), GetParam().offset, GetParam().word);
  std::string const traces = tracesOf("0-2", [&] { store.open(); });
  EXPECT_THAT(traces, HasSubstr("slotsAttached:8"));
  EXPECT_EQ(store->members(), 0U);
  EXPECT_EQ(store.image().expectSound(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    , SlotFileHeader,
    testing::Values(HeaderDamage{"magic", 0, 1}, HeaderDamage{"headerSize", 4, 1U << 16 | 600},
                    HeaderDamage{"formatVersion", 4, 2U << 16 | 608}, HeaderDamage{"valueSize", 8, 36},
                    HeaderDamage{"slotSize", 12, 56}, HeaderDamage{"generation", 16, 0x12345678},
                    HeaderDamage{"capacity", 20, 0}, HeaderDamage{"maximumSize", 24, 0},
                    HeaderDamage{"marshalledSize", 28, 31}, HeaderDamage{"typeName", 36, 0x58585858},
                    HeaderDamage{"numSlots", 588, 0x3fffffff}),
    [](auto const& damage) { return std::string(damage.param.name); });

TEST(SlotFileAttach, FixedTableWithAnotherNumberOfSlotsIsRefused) {
  auto descriptor = sharedDescriptor(10);
  descriptor.fixedSize = true;
  Store32 store(descriptor);
  EXPECT_EQ(store->capacity(), 10U);
  store.close();
  store.descriptor().maxSize = 12;
  std::string const traces = tracesOf("0", [&] { store.open(); });
  EXPECT_THAT(traces,
              HasSubstr("wanted capacity:12 for fixed-size table, but existing file has capacity:10"));
  EXPECT_EQ(store->capacity(), 12U);
}

TEST(SlotFileAttach, MinimumSizeFillsAPage) {
  EXPECT_EQ(Store32()->minSize(), 64U);
  EXPECT_EQ((Store<TestRecord<ChosenKey, 20>>()->minSize()), 64U);
  EXPECT_EQ(Store700()->minSize(), 2U);
  EXPECT_EQ(LargeStore()->minSize(), 1U);
}

TEST(SlotFileAttach, SomethingThatIsNoFileInItsPlaceIsToldAndLeftAlone) {
  Store32 store;
  store.close();
  std::filesystem::remove(store.file("slots"));
  std::filesystem::create_directory(store.file("slots"));
  EXPECT_THAT(messageOf<Dovel::InvalidInitializeException>([&] { store.open(); }),
              HasSubstr("cannot attach to shmem slots size:3728: "));
}

TEST(SlotFileAttach, DumpsTheHeaderWhereAsked) {
  Store32 store;
  EXPECT_THAT(tracesOf("3", [&] { store.reopen(); }), HasSubstr("type:TestSupport::TestRecord"));
}

TEST(SlotTable, OfOneSlotHasIndexZeroAloneAndGrowsToTwo) {
  LargeStore store;
  EXPECT_EQ(store->capacity(), 1U);
  EXPECT_NO_THROW(store->slotTable()[0]);
  EXPECT_EQ(messageOf<Dovel::CorruptionDetectedException>([&] { store->slotTable()[1]; }),
            "out-of-range index: 1 max:0");
  fill(store, 0, 2);
  EXPECT_EQ(store->capacity(), 2U);
  EXPECT_NO_THROW(store->slotTable()[1]);
  EXPECT_EQ(messageOf<Dovel::CorruptionDetectedException>([&] { store->slotTable()[2]; }),
            "out-of-range index: 2 max:1");
}

TEST(SlotTable, WithoutASlotEveryIndexIsOutOfRange) {
  Store32 store;
  store->slotTable().detach();
  EXPECT_EQ(messageOf<Dovel::CorruptionDetectedException>([&] { store->slotTable()[0]; }),
            "out-of-range index: 0 max:0");
}

TEST(SlotTable, AfterGrowthTheFreeListRunsFromTheOldNumberUpwards) {
  Store32 store;
  fill(store, 0, 64);
  EXPECT_EQ(store.image().freeList(), Image::kNil);
  std::uint32_t const version = store.image().numSlotsVersion();
  std::string const traces = tracesOf("2-5", [&] { fill(store, 64, 65); });
  Image const image = store.image();
  std::vector<std::uint32_t> expected;
  for (std::uint32_t id = 65; id < 128; ++id) expected.push_back(id);
  EXPECT_EQ(image.freeIds(), expected);
  EXPECT_EQ(image.numSlots(), 128U);
  EXPECT_EQ(image.numSlotsVersion(), version + 1);
  EXPECT_EQ(image.peak(), 128U);
  EXPECT_EQ(store->counters().slotGrows, 1U);
  EXPECT_THAT(traces, HasSubstr("slots from 64 slots to 128"));
  EXPECT_THAT(traces, HasSubstr("slots from 64 to 128 slots"));
  EXPECT_THAT(traces, HasSubstr("to 128 successfully"));
  EXPECT_THAT(traces, HasSubstr("shrinkThreshold_:64"));
  EXPECT_EQ(image.expectSound(), 65U);
}

TEST(SlotTable, PastItsMaximumItGrowsByTenPercentAndGoesOn) {
  Store32 store(sharedDescriptor(70));
  fill(store, 0, 65);
  EXPECT_EQ(store->capacity(), 70U);
  std::string const traces = tracesOf("5", [&] { fill(store, 65, 71); });
  EXPECT_THAT(traces, HasSubstr("overflowing by 7 slots"));
  EXPECT_EQ(store->capacity(), 77U);
  fill(store, 71, 78);
  EXPECT_EQ(store->capacity(), 85U);
  EXPECT_EQ(store.image().expectSound(), 78U);
  EXPECT_TRUE(store->validate());
}

TEST(SlotTable, FixedOneThatIsFullThrowsWithTheCriticalFlagClearAndNothingChanged) {
  auto descriptor = sharedDescriptor(3);
  descriptor.fixedSize = true;
  Store32 store(descriptor);
  fill(store, 0, 3);
  Image const before = store.image();
  std::string const expected = "Vault table full (occupancy:3 tableSize:3) " + store.folder().path();
  EXPECT_EQ(messageOf<Vault::TableFullException>([&] { fill(store, 3, 4); }), expected);
  EXPECT_EQ(store.image().slots(), before.slots());
  EXPECT_EQ(store.image().buckets(), before.buckets());
  EXPECT_EQ(messageOf<Vault::TableFullException>([&] {
              store->directWrite(Record32::of({9, 9}, 1));
            }),
            expected);
  EXPECT_EQ(store.image().runtimeFlags(), 0);
  store.write({1, 2654435761U}, 77);
  EXPECT_TRUE(store.remove({0, 0}));
  fill(store, 3, 4);
  EXPECT_EQ(store.image().expectSound(), 3U);
}

TEST(SlotTable, PurgeTakesAllFreeSlotsPastTheThresholdOffTheList) {
  Store32 store;
  fill(store, 0, 10);
  std::string const traces = tracesOf("7", [&] { store->slotTable().purgeFreeSlots(10); });
  EXPECT_EQ(store.image().freeList(), Image::kNil);
  EXPECT_THAT(traces, HasSubstr("removing slot id 10 from free-list"));
  EXPECT_THAT(traces, HasSubstr("removing slot id 63 from free-list"));
}

TEST(SlotTable, PurgeKeepsFreeSlotsBelowTheThresholdInTheirOrder) {
  Store32 store;
  fill(store, 0, 10);
  for (std::uint32_t const number : {2U, 8U, 5U}) store.remove({number, number * 2654435761U});
  store->slotTable().purgeFreeSlots(8);
  EXPECT_THAT(store.image().freeIds(), ElementsAre(5, 2));
}

TEST(SlotTable, PurgeFindsAListThatDoesNotAddUp) {
  Store32 store;
  fill(store, 0, 10);
  poke32(store.file("slots"), 564, 11);
  EXPECT_EQ(messageOf<Dovel::CorruptionDetectedException>([&] { store->slotTable().purgeFreeSlots(10); }),
            "numSlots mismatch, length of freeList: 54, occupiedSlots: 11 do not add up to numSlots: 64");
}

TEST(SlotTable, GrowthFindsCountsThatContradictEachOther) {
  Store32 store;
  fill(store, 0, 64);
  poke32(store.file("slots"), 564, 63);
  EXPECT_EQ(messageOf<Dovel::CorruptionDetectedException>([&] { fill(store, 64, 65); }),
            "the slot table is full but numSlots: 64 and occupiedSlots: 63 are not equal");
  EXPECT_EQ(store.image().runtimeFlags(), 1);
}

TEST(SlotTableDeathTest, RangesThatAreNoneEndTheProcess) {
  // Local, as a child has no part in a shared one.
  Store32 store{Vault::MapDescriptor(1000)};
  auto& slots = store->slotTable();
  EXPECT_DEATH(slots.initializeSlots(5, 5), "bad index range, start: 5 end: 5");
  EXPECT_DEATH(slots.initializeSlots(0, 1), "free-list is not empty");
  EXPECT_DEATH(slots.purgeFreeSlots(64), "bad threshold: 64 numSlots:64");
  fill(store, 0, 1);
  EXPECT_DEATH(slots.move(0), "should always move entries to lower section fromSlotId:0 toSlotId:1");
  fill(store, 1, 64);
  EXPECT_DEATH(slots.purgeFreeSlots(10), "free-list is empty");
  // No slot is above nil, so a move without a free slot fails in the same way.
  EXPECT_DEATH(slots.move(63),
               "should always move entries to lower section fromSlotId:63 toSlotId:3221225471");
}

TEST(SlotTable, MoveCarriesValueHashAndFlagAndRaisesTheSequence) {
  Store32 store;
  fill(store, 0, 10);
  ChosenKey const moved{9, 9 * 2654435761U};
  store->markAndSweepFlag(moved, Vault::MarkAndSweepOperation::set);
  store.remove({4, 4 * 2654435761U});
  Image const before = store.image();
  std::uint32_t to = 0;
  std::string const traces = tracesOf("7", [&] { to = store->slotTable().move(9); });
  Image const after = store.image();
  EXPECT_EQ(to, 4U);
  EXPECT_THAT(traces, HasSubstr("fromSlotId:9 toSlotId:4"));
  EXPECT_EQ(after.value(4), before.value(9));
  EXPECT_EQ(after.hash(4), before.hash(9));
  EXPECT_EQ(after.link(4).target(), before.link(9).target());
  EXPECT_TRUE(after.link(4).flag());
  EXPECT_EQ(after.link(4).sequence, (before.link(4).sequence + 12) | 1);
  EXPECT_EQ(after.freeList(), before.link(4).target());
}

TEST(SlotTable, ShrinkThresholdIsThePowerOfTwoBelowTheSlots) {
  Store32 store;
  EXPECT_EQ(store->slotTable().shrinkThreshold(), 0U);
  fill(store, 0, 65);
  EXPECT_EQ(store->slotTable().shrinkThreshold(), 64U);
  fill(store, 65, 129);
  EXPECT_EQ(store->slotTable().shrinkThreshold(), 128U);
  store.reopen();
  EXPECT_EQ(store->slotTable().shrinkThreshold(), 128U);
}

TEST(SlotTable, WithoutShrinkingOrOfFixedSizeHasNoShrinkThreshold) {
  auto descriptor = sharedDescriptor(1000);
  descriptor.shrink = false;
  Store32 grows(descriptor);
  fill(grows, 0, 65);
  EXPECT_EQ(grows->slotTable().shrinkThreshold(), 0U);
  descriptor.shrink = descriptor.fixedSize = true;
  EXPECT_EQ(Store32(descriptor)->slotTable().shrinkThreshold(), 0U);
}

TEST(SlotTable, ShrinkPublishesTheCountAndGivesTheMemoryBackButNotTheLength) {
  Store32 store;
  fill(store, 0, 700);
  auto const length = std::filesystem::file_size(store.file("slots"));
  auto const blocks = [&] {
    struct stat status {};
    ::stat(store.file("slots").c_str(), &status);
    return status.st_blocks;
  };
  auto const before = blocks();
  std::uint32_t const version = store.image().numSlotsVersion();
  std::string const traces = tracesOf("2", [&] {
    for (std::uint32_t number = 700; number-- > 100;) store.remove({number, number * 2654435761U});
  });
  Image const image = store.image();
  EXPECT_EQ(image.numSlots(), 256U);
  EXPECT_THAT(traces, HasSubstr("slots from 1000 slots to 512"));
  EXPECT_EQ(image.numSlotsVersion(), version + 2);
  EXPECT_EQ(std::filesystem::file_size(store.file("slots")), length);
  EXPECT_LT(blocks(), before / 2);
  EXPECT_EQ(wordAt<std::uint64_t>(image.slots(), image.offsetOf(600)), 0U);
  EXPECT_EQ(image.peak(), 1000U);
  EXPECT_EQ(image.expectSound(), 100U);
  EXPECT_EQ(store->counters().slotShrinks, 2U);
}

TEST(SlotTable, SlotsThatCameAndWentHaveHigherSequencesWhenTheyComeAgain) {
  Store32 store;
  fill(store, 0, 128);
  for (int change = 0; change < 10; ++change) store.write({100, 100 * 2654435761U}, 5);
  std::uint32_t highest = 0;
  for (std::uint32_t id = 64; id < 128; ++id) highest = std::max(highest, store.image().link(id).sequence);
  for (std::uint32_t number = 128; number-- > 10;) store.remove({number, number * 2654435761U});
  EXPECT_EQ(store.image().numSlots(), 64U);
  EXPECT_GE(store.image().watermark(), highest);
  EXPECT_EQ(store.image().watermark() % 4, 0U);
  std::uint32_t const watermark = store.image().watermark();
  fill(store, 10, 65);
  Image const image = store.image();
  for (std::uint32_t id = 65; id < 128; ++id) EXPECT_EQ(image.link(id).sequence, watermark + 4) << id;
  fill(store, 65, 129);
  EXPECT_EQ(store.image().numSlots(), 256U);
  for (std::uint32_t id = 129; id < 256; ++id) EXPECT_EQ(store.image().link(id).sequence, 4U) << id;
}

TEST(SlotTable, FileThatCannotGrowIsAnExceptionAndTheCriticalFlagStands) {
  Store32 store;
  fill(store, 0, 64);
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  rlimit const tight{4096, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &tight);
  std::string const told = messageOf<Dovel::MemoryResourceException>([&] { fill(store, 64, 65); });
  ::setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_THAT(told, HasSubstr("failed to resize slots from 64 to 128 slots, needed 6800 bytes. Reason: "));
  EXPECT_EQ(store.image().runtimeFlags(), 1);
  EXPECT_EQ(store.image().numSlots(), 64U);
  store.reopen();
  EXPECT_EQ(store->members(), 0U);
}

// Memory that costs nothing until it is touched, and that can be made to fail or to move.
class FakeMapping final : public Mem::Mapping {
 public:
  explicit FakeMapping(std::size_t room) : room_(room), base_(reserve()) {}
  ~FakeMapping() override { ::munmap(base_, room_); }

  std::byte* attach(std::size_t size, Mem::Access, std::size_t) override {
    if (attachFails) return nullptr;
    mapped_ = std::max(mapped_, size);
    return base_;
  }
  std::byte* resize(std::size_t size) override {
    if (fails) return nullptr;
    if (moves) {
      std::byte* const moved = reserve();
      std::memcpy(moved, base_, std::min<std::size_t>(mapped_, 1 << 20));
      ::munmap(base_, room_);
      base_ = moved;
    }
    mapped_ = size;
    return base_;
  }
  void detach() override {}
  std::size_t memSize() const override { return mapped_; }
  std::size_t mappedSize() const override { return mapped_; }
  bool isInPlace() const override { return true; }
  Dovel::String const& error() const override { return error_; }
  Dovel::String const& getFilename() const override { return name_; }
  void dumpToCoreIs(Mem::CoreDump) override {}
  void removeFile() override {}

  bool attachFails = false;
  bool fails = false;
  bool moves = false;
  std::byte* base() const { return base_; }

 private:
  std::byte* reserve() const {
    void* const at =
        ::mmap(nullptr, room_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (at == MAP_FAILED) throw std::bad_alloc();
    return static_cast<std::byte*>(at);
  }

  std::size_t const room_;
  std::byte* base_;
  std::size_t mapped_ = 0;
  Dovel::String const name_ = "fake";
  Dovel::String const error_ = "for a test";
};

class SlotTableInMemory : public testing::Test {
 protected:
  using Slots = Vault::SlotWriterTable<OpsFor<TestRecord<ChosenKey, 12>>>;

  void make(std::uint32_t maxSize, std::size_t room = 1 << 22) {
    auto setup = Slots::setup();
    setup.capacity = 4;
    setup.maxSize = maxSize;
    auto mapping = std::make_unique<FakeMapping>(room);
    mapping_ = mapping.get();
    slots_ = std::make_unique<Slots>(storeHandler(), rootPath_, std::move(mapping), setup, seed_, counters_);
    ASSERT_EQ(slots_->attach(SharedMem::EmberId(5)), Vault::AttachResult::newFile);
  }
  // Has the table be full with so many slots, none of which was ever touched.
  void fullWith(std::uint32_t numSlots) {
    auto const header = slots_->header();
    header.publishNumSlots(numSlots);
    header.occupiedSlotsIs(numSlots);
    header.freeListIs(Vault::SlotLink::kNil);
    mapping_->resize(640 + std::size_t{numSlots} * 32);
    ASSERT_EQ(slots_->attach(SharedMem::EmberId(5)), Vault::AttachResult::existingFile);
  }

  static constexpr std::size_t kRoomForAll = 640 + (std::size_t{1} << 30) * 32;

  Mem::RootPath const rootPath_{storeHandler(), "fake", false};
  std::uint32_t seed_ = 0;
  Vault::Writer::Counters counters_;
  FakeMapping* mapping_ = nullptr;
  std::unique_ptr<Slots> slots_;
};

TEST_F(SlotTableInMemory, GrowsWhereSinglePrecisionWouldNot) {
  constexpr std::uint32_t kFirstGap = 1U << 24;
  make(kFirstGap + 1, kRoomForAll);
  fullWith(kFirstGap);
  EXPECT_TRUE(slots_->grow());
  EXPECT_EQ(slots_->numSlots(), kFirstGap + 2);
  EXPECT_EQ(slots_->header().freeList(), kFirstGap);
}

TEST_F(SlotTableInMemory, NeverGrowsPastTheIdsThatThereAre) {
  constexpr std::uint32_t kMost = 0x3fffffff;
  make(100, kRoomForAll);
  fullWith(kMost - 63);
  EXPECT_TRUE(slots_->grow());
  EXPECT_EQ(slots_->numSlots(), kMost);
  fullWith(kMost);
  EXPECT_FALSE(slots_->grow());
}

TEST_F(SlotTableInMemory, RoundsUpWhereItGrowsByTenPercent) {
  make(4);
  fullWith(4);
  EXPECT_TRUE(slots_->grow());
  EXPECT_EQ(slots_->numSlots(), 5U);
}

TEST_F(SlotTableInMemory, ThatCannotBeMappedIsAnException) {
  make(100);
  mapping_->attachFails = true;
  EXPECT_EQ(messageOf<Dovel::InvalidInitializeException>([&] { slots_->attach(SharedMem::EmberId(5)); }),
            "cannot attach to shmem fake size:768: for a test");
  mapping_->attachFails = false;
  mapping_->fails = true;
  EXPECT_EQ(messageOf<Dovel::MemoryResourceException>([&] { slots_->attach(SharedMem::EmberId(5)); }),
            "failed to resize fake to size 768 : for a test");
}

TEST_F(SlotTableInMemory, MovedMappingIsToldAndCounted) {
  make(100);
  fullWith(4);
  auto const before = counters_.remaps;
  mapping_->moves = true;
  std::string const traces = tracesOf("5", [&] { slots_->grow(); });
  EXPECT_THAT(traces, HasSubstr("remap base address changed from 0x"));
  EXPECT_EQ(counters_.remaps, before + 1);
  EXPECT_EQ(slots_->header().freeList(), 4U);
  EXPECT_EQ(slots_->base(), mapping_->base());
}

}  // namespace
