#include "tests/VaultProbed/ScheduleParties.h"

#include <array>
#include <string_view>

#include "Vault/VaultReader.h"
#include "Vault/VaultWriter.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Dovel/TraceChannel.h"

template <>
struct fmt::formatter<ScheduleTests::Key> : Dovel::PlainFormatter {
  auto format(ScheduleTests::Key const& key, fmt::format_context& context) const {
    return fmt::format_to(context.out(), "key{}", key.number);
  }
};

namespace ScheduleTests {
namespace {

Dovel::Platform::DebugHandler const& handler() {
  static auto const quiet = [] {
    Dovel::Trace::levelsIs("ScheduleTests", 0);
    return Dovel::Platform::getDebugHandler("ScheduleTests", true);
  }();
  return quiet;
}

template <std::size_t Bytes>
class Record {
 public:
  Record() = default;
  Record(Key const& key, std::uint32_t version) : key_(key) { words_.front() = words_.back() = version; }

  static std::string_view typeName() { return "ScheduleRecord"; }
  Key const& entryKey() const { return key_; }
  // Versions tell whose they are.
  std::uint32_t version() const {
    bool const whole = words_.front() == words_.back() && words_.front() / 16 == key_.number;
    return whole ? words_.front() : Answer::kTorn;
  }

 private:
  Key key_;
  std::array<std::uint32_t, (Bytes - sizeof(Key)) / 4> words_{};
};

template <std::size_t Bytes>
using OpsOf = Vault::OpsOf<OrloVault::ValWrap<Record<Bytes>, Key, &Record<Bytes>::entryKey, false>>;

template <class Ops>
class Writer final : public WritingParty {
 public:
  Writer(Table const& table, std::string const& directory) : table_(table), directory_(directory) {
    attach();
  }

  void apply(Operation const& operation) override {
    typename Ops::Value value(typename Ops::Value::RecordType(operation.key, operation.version));
    switch (operation.kind) {
      case Operation::write:
        writer_->write(value, true);
        break;
      case Operation::remove:
        writer_->remove(operation.key, value);
        break;
      case Operation::direct:
        writer_->directWrite(value);
        writer_->directCommit();
        break;
      case Operation::mark:
        writer_->markAndSweepFlag(operation.key, Vault::MarkAndSweepOperation::set);
        break;
      case Operation::attach:
        attach();
        break;
      default:
        writer_->cleanup();
    }
  }
  void die() override {
    writer_->slotTable().enterCriticalSection();
    writer_.reset();
  }

 private:
  void attach() {
    writer_.reset();
    Vault::MapDescriptor descriptor(table_.maxSize);
    descriptor.localMem = false;
    descriptor.fixedSize = table_.fixedSize;
    writer_ = std::make_unique<Vault::VaultWriter<Ops>>(handler(), Mem::RootPath(handler(), directory_, true),
                                                        descriptor);
    writer_->initialize("test");
  }

  Table const table_;
  std::string const directory_;
  std::unique_ptr<Vault::VaultWriter<Ops>> writer_;
};

template <class Ops>
class Reader final : public ReadingParty {
 public:
  explicit Reader(std::string const& directory)
      : reader_(handler(), Mem::RootPath(handler(), directory, true), [this] { told_ = true; }) {}

  bool initialize() override { return reader_.initialize("test"); }
  Answer lookup(Key const& key) override {
    bool found = false;
    auto const* const value = reader_.lookup(key, found, nullptr);
    return answer(found, *value);
  }
  Answer lookupInPlace(Key const& key) override {
    bool found = false;
    typename Ops::Value value(typename Ops::Value::RecordType(key, 0));
    reader_.lookup(value.entryKey(), found, &value);
    return answer(found, value);
  }
  Answer first() override { return answer(reader_.first(value_, hint_), value_); }
  Answer next() override { return answer(reader_.next(value_.entryKey(), value_, hint_), value_); }
  Answer valueOf(std::uint32_t slot) override {
    typename Ops::Value value;
    return answer(reader_.getValue(slot, value, nullptr), value);
  }
  bool told() const override { return told_; }
  std::uint64_t resizes() const override {
    auto const counters = reader_.readerCounters();
    return counters.slotResizes + counters.bucketResizes;
  }

 private:
  static Answer answer(bool found, typename Ops::Value const& value) {
    return found ? Answer{true, value.entryKey(), value.version()} : Answer{};
  }

  bool told_ = false;
  typename Ops::Value value_;
  Vault::IterHint hint_;
  Vault::VaultReader<Ops> reader_;
};

using SmallOps = OpsOf<24>;
using SharingOps = OpsOf<28>;
using LargeOps = OpsOf<704>;

}  // namespace

std::size_t slotCellsOf(Records records) {
  std::uint32_t const size = records == Records::small         ? SmallOps::valueSize
                             : records == Records::sharingWord ? SharingOps::valueSize
                                                               : LargeOps::valueSize;
  return Vault::SlotShape{size}.slotCells();
}

std::unique_ptr<WritingParty> writerOf(Table const& table, std::string const& directory) {
  switch (table.records) {
    case Records::small:
      return std::make_unique<Writer<SmallOps>>(table, directory);
    case Records::sharingWord:
      return std::make_unique<Writer<SharingOps>>(table, directory);
    default:
      return std::make_unique<Writer<LargeOps>>(table, directory);
  }
}

std::unique_ptr<ReadingParty> readerOf(Records records, std::string const& directory) {
  switch (records) {
    case Records::small:
      return std::make_unique<Reader<SmallOps>>(directory);
    case Records::sharingWord:
      return std::make_unique<Reader<SharingOps>>(directory);
    default:
      return std::make_unique<Reader<LargeOps>>(directory);
  }
}

}  // namespace ScheduleTests
