// The way from a command list through the channel to the software chip, beside a plain memcpy of the same
// rows: one row a message, or a buffer of rows a bulk transfer. The list is filled within the measured time.
// Exact-match entries go to the chip as they are, without a channel: what the chip itself takes of an entry.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/chip/SchanChannel.h"
#include "platform/chip/SoftwareChip.h"
#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"

namespace {

using Message = Sluice::schan_xmsg_user_;

constexpr std::uint32_t kBlock = 282;
constexpr std::uint32_t kRow = 0x3100000;
constexpr std::uint32_t kRowBytes = 24;
// Of a list: as many as a table writer collects.
constexpr std::uint32_t kCommands = 1024;

Sluice::Fapmask firstFap() {
  Sluice::Fapmask faps;
  faps.fapIdIs(0, true);
  return faps;
}

class Write : public Dovel::Tracked<Write, Sluice::SchanCmdBase> {
 public:
  explicit Write(std::uint32_t row) : row_(row) {}
  Sluice::Fapmask const& fapmask() const override { return faps_; }
  unsigned int dwc_write() const override { return sizeof(Message) / 4; }
  unsigned int dwc_read() const override { return 8; }

  std::uint32_t status = 0;

 protected:
  void fillCmd(std::span<std::uint32_t> buf) override {
    auto* const message = reinterpret_cast<Message*>(buf.data());
    fillCmdletHeader(message, Sluice::SchanOpcode::memoryWrite, 0, kBlock, Message::lengthFor(kRowBytes));
    message->responseRequested = 1;
    message->address = row_;
    std::memset(message->data, static_cast<int>(row_), kRowBytes);
  }
  void readResp(std::span<std::uint32_t const> buf) override { status |= buf[0]; }

 private:
  Sluice::Fapmask faps_ = firstFap();
  std::uint32_t row_;
};

class Bulk : public Dovel::Tracked<Bulk, Sluice::SchanCmdBase> {
 public:
  explicit Bulk(Sluice::BulkTransfer const& transfer) : transfer_(transfer) {}
  Sluice::Fapmask const& fapmask() const override { return faps_; }
  unsigned int dwc_write() const override { return 0; }
  unsigned int dwc_read() const override { return 8; }
  unsigned int bulkTransferCount() const override { return 1; }
  Sluice::BulkTransfer bulkTransfer(unsigned int) const override { return transfer_; }

  std::uint32_t status = 0;

 protected:
  void fillCmd(std::span<std::uint32_t>) override {}
  void readResp(std::span<std::uint32_t const> buf) override { status |= buf[0]; }

 private:
  Sluice::Fapmask faps_ = firstFap();
  Sluice::BulkTransfer transfer_;
};

Dovel::Ptr<Chip::SoftwareChip> softwareChip() {
  return Dovel::ptrIsImpl<Chip::SoftwareChip>(Chip::SoftwareChip::Options{});
}

void messages(benchmark::State& state) {
  auto const chip = softwareChip();
  auto const channel = Dovel::ptrIsImpl<Chip::SchanChannel>(chip);
  std::vector<Dovel::Ptr<Write>> commands;
  for (std::uint32_t row = 0; row < kCommands; ++row) commands.push_back(Dovel::ptrIsImpl<Write>(kRow + row));
  auto const list = Sluice::schanCmdsFactory();
  std::uint64_t refused = 0;
  for (auto _ : state) {
    for (auto const& command : commands) list->cmdEnq(command);
    refused += channel->send(list).refused;
  }
  if (refused != 0 || chip->counters(0).refused != 0) state.SkipWithError("the chip refused a write");
  state.SetItemsProcessed(state.iterations() * kCommands);
}

void rowCopies(benchmark::State& state) {
  std::vector<std::byte> const from(std::size_t{kCommands} * kRowBytes);
  std::vector<std::byte> to(from.size());
  for (auto _ : state) {
    for (std::size_t at = 0; at < from.size(); at += kRowBytes) {
      std::memcpy(&to[at], &from[at], kRowBytes);
      benchmark::DoNotOptimize(to.data());
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * kCommands);
}

void bulkTransfers(benchmark::State& state, std::uint32_t rows) {
  auto const pool = DmaMemPoolManager::localMemPoolFactory("bench");
  auto const buffer = dmaMemPoolBufferFactory(pool);
  std::memset(buffer->va(), 1, buffer->bufSize());
  auto const chip = softwareChip();
  chip->dmaPoolIs(pool);
  auto const channel = Dovel::ptrIsImpl<Chip::SchanChannel>(chip);
  auto const command =
      Dovel::ptrIsImpl<Bulk>(Sluice::BulkTransfer{.block = kBlock,
                                                  .row = kRow,
                                                  .rows = rows,
                                                  .rowBytes = kRowBytes,
                                                  .dmaAddress = buffer->dmaAddrInfo().dmaAddress});
  auto const list = Sluice::schanCmdsFactory();
  for (auto _ : state) {
    list->cmdEnq(command);
    channel->send(list);
  }
  if (command->status != 0) state.SkipWithError("the chip refused a transfer");
  state.SetItemsProcessed(state.iterations() * rows);
}

void bufferCopies(benchmark::State& state, std::uint32_t rows) {
  std::vector<std::byte> const from(std::size_t{rows} * kRowBytes, std::byte{1});
  std::vector<std::byte> to(from.size());
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * rows);
}

// Labels of MPLS, as the table has them, in an order that no bucket knows.
class Labels {
 public:
  static constexpr std::uint32_t kCount = 100000;
  static constexpr std::uint32_t kTable = 64;

  Labels() : pool_(DmaMemPoolManager::localMemPoolFactory("bench", std::size_t{kCount} * 24, 1)) {
    buffer_ = dmaMemPoolBufferFactory(pool_);
    messages.reserve(kCount);
    std::uint32_t label = 1;
    for (std::uint32_t number = 0; number < kCount; ++number, label = (label * 5 + 12345) & 0xFFFFF) {
      std::uint64_t const words[3] = {288U | std::uint64_t{label} << 9, (number & 0x7FFFF) | 1U << 19,
                                      std::uint64_t{1} << (167 - 128)};
      std::memcpy(buffer_->va() + std::size_t{number} * 24, words, 24);
      Message message{};
      message.header = 53U << 24 | Message::kExactMatchLength;
      message.block = kBlock;
      message.physicalTableId = kTable;
      message.responseRequested = 1;
      std::memcpy(message.data, words, 24);
      messages.push_back(message);
    }
  }

  Dovel::Ptr<Chip::SoftwareChip> chip() const {
    auto chip = softwareChip();
    chip->dmaPoolIs(pool_);
    return chip;
  }
  Sluice::BulkTransfer transfer() const {
    return {.opcode = Sluice::SchanOpcode::exactMatch,
            .block = kBlock,
            .rows = kCount,
            .rowBytes = 24,
            .dmaAddress = buffer_->dmaAddrInfo().dmaAddress,
            .physicalTableId = kTable};
  }

  std::vector<Message> messages;

 private:
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> pool_;
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer> buffer_;
};

void sendAll(Chip::SoftwareChip& chip, Labels const& labels) {
  for (Message const& message : labels.messages) {
    Sluice::SchanResponse response;
    chip.message(0, message, response);
    benchmark::DoNotOptimize(response);
  }
}

// Into a chip that was reset, or, without `blank`, one that holds the keys.
template <class Send>
void exactMatch(benchmark::State& state, bool blank, Send const& send) {
  Labels const labels;
  auto const chip = labels.chip();
  send(*chip, labels);
  for (auto _ : state) {
    if (blank) {
      state.PauseTiming();
      chip->reset(0);
      state.ResumeTiming();
    }
    send(*chip, labels);
  }
  if (chip->counters(0).refused != 0) state.SkipWithError("the chip refused an entry");
  state.SetItemsProcessed(state.iterations() * Labels::kCount);
}

void sendBulk(Chip::SoftwareChip& chip, Labels const& labels) {
  Sluice::SchanResponse response;
  chip.bulk(0, labels.transfer(), response);
}

// Marks every entry, as the first pass of a reconciliation does.
void mark(Chip::SoftwareChip& chip, Labels const&) {
  Sluice::FlushPass pass{.action = Sluice::FlushPass::Action::merge,
                         .block = kBlock,
                         .physicalTableId = Labels::kTable,
                         .entryType = 1};
  pass.rule.mask[9] = 0xC;
  pass.rule.value[9] = 0x4;
  pass.payload.mask[13] = pass.payload.value[13] = 4;
  Sluice::SchanResponse response;
  chip.flush(0, pass, response);
  benchmark::DoNotOptimize(response);
}

void markPasses(benchmark::State& state) {
  Labels const labels;
  auto const chip = labels.chip();
  sendBulk(*chip, labels);
  for (auto _ : state) mark(*chip, labels);
  if (chip->counters(0).bytes != 24 * (static_cast<std::uint64_t>(state.iterations()) + 1) * Labels::kCount)
    state.SkipWithError("a pass missed entries");
  state.SetItemsProcessed(state.iterations() * Labels::kCount);
}

[[maybe_unused]] bool const registered = [] {
  benchmark::RegisterBenchmark("chip/message/hwtables/1", messages);
  benchmark::RegisterBenchmark("chip/message/memcpy/1", rowCopies);
  // What fits the buffers of a pool by default.
  for (std::uint32_t rows : {16U, 2730U}) {
    std::string const size = std::to_string(rows);
    benchmark::RegisterBenchmark(("chip/bulk/hwtables/" + size).c_str(),
                                 [rows](benchmark::State& state) { bulkTransfers(state, rows); });
    benchmark::RegisterBenchmark(("chip/bulk/memcpy/" + size).c_str(),
                                 [rows](benchmark::State& state) { bufferCopies(state, rows); });
  }
  using benchmark::RegisterBenchmark;
  RegisterBenchmark("chip/exact_match_insert/hwtables/100000",
                    [](benchmark::State& state) { exactMatch(state, true, sendAll); });
  RegisterBenchmark("chip/exact_match_update/hwtables/100000",
                    [](benchmark::State& state) { exactMatch(state, false, sendAll); });
  RegisterBenchmark("chip/exact_match_bulk_insert/hwtables/100000",
                    [](benchmark::State& state) { exactMatch(state, true, sendBulk); });
  RegisterBenchmark("chip/exact_match_bulk_update/hwtables/100000",
                    [](benchmark::State& state) { exactMatch(state, false, sendBulk); });
  RegisterBenchmark("chip/exact_match_mark_pass/hwtables/100000", markPasses);
  return true;
}();

}  // namespace
