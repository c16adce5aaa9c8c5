// Commands, chips and buffers for tests of the way to the chip.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "platform/chip/SoftwareChip.h"
#include "platform/switch/DmaMemPoolManager/LocalMemPool.h"
#include "platform/switch/Sluice/SchanCmds.h"

namespace TestSupport {

using Words = std::vector<std::uint32_t>;
using RowBytes = std::vector<std::byte>;

// Memories of the chip that the tests use, told here anew.
struct Place {
  std::uint32_t block;
  std::uint32_t row;
  std::uint32_t rowBytes;
};
inline constexpr Place kTcam{282, 0x3100000, 24};
inline constexpr Place kAds{282, 0x3130000, 16};
inline constexpr Place kBuckets{282, 0x120000, 64};
inline constexpr Place kSniff{146, 0x30000, 68};
inline constexpr Place kRegister{35, 0x146, 28};

inline RowBytes rowOf(Place const& place, unsigned content) {
  RowBytes bytes(place.rowBytes);
  for (std::size_t at = 0; at < bytes.size(); ++at)
    bytes[at] = static_cast<std::byte>(std::size_t{content} * 7 + at);
  return bytes;
}

inline Place after(Place place, std::uint32_t rows) {
  place.row += rows;
  return place;
}

inline Sluice::schan_xmsg_user_ message(Sluice::SchanOpcode opcode, Place const& place,
                                        RowBytes const& data = {}) {
  using Message = Sluice::schan_xmsg_user_;
  Message message{};
  message.header = std::uint32_t{static_cast<std::uint8_t>(opcode)} << 24 |
                   Message::lengthFor(static_cast<std::uint32_t>(data.size()));
  message.block = place.block;
  message.responseRequested = 1;
  message.address = place.row;
  if (!data.empty()) std::memcpy(message.data, data.data(), std::min(data.size(), sizeof message.data));
  return message;
}

inline Sluice::schan_xmsg_user_ writeOf(Place const& place, unsigned content) {
  bool const isRegister = place.block == kRegister.block;
  return message(isRegister ? Sluice::SchanOpcode::registerWrite : Sluice::SchanOpcode::memoryWrite, place,
                 rowOf(place, content));
}

inline Sluice::schan_xmsg_user_ readOf(Place const& place) {
  return message(Sluice::SchanOpcode::memoryRead, place);
}

inline Sluice::Fapmask fapsOf(std::initializer_list<unsigned> numbers) {
  Sluice::Fapmask mask;
  for (unsigned number : numbers) mask.fapIdIs(number, true);
  return mask;
}

// A command that keeps what it was answered.
class TestCmd : public Dovel::Tracked<TestCmd, Sluice::SchanCmdBase> {
 public:
  TestCmd(Sluice::Fapmask const& faps, Sluice::schan_xmsg_user_ const& toSend)
      : faps_(faps), message_(toSend), answerWords(8 * faps.fapIds().size()) {}
  TestCmd(Sluice::Fapmask const& faps, std::vector<Sluice::BulkTransfer> transfers)
      : faps_(faps), transfers_(std::move(transfers)), answerWords(8 * faps.fapIds().size()) {}
  TestCmd(Sluice::Fapmask const& faps, Sluice::FlushPass const& pass)
      : faps_(faps), pass_(pass), answerWords(8 * faps.fapIds().size()) {}

  Sluice::Fapmask const& fapmask() const override { return faps_; }
  unsigned int dwc_write() const override { return messageWords; }
  unsigned int dwc_read() const override { return static_cast<unsigned>(answerWords); }
  unsigned int bulkTransferCount() const override { return static_cast<unsigned>(transfers_.size()); }
  Sluice::BulkTransfer bulkTransfer(unsigned int number) const override { return transfers_.at(number); }
  Sluice::FlushPass const* flushPass() const override { return pass_ ? &*pass_ : nullptr; }
  Sluice::SchanResponse* responseBlock() override { return block; }

  Sluice::SchanStatus status(std::size_t number = 0) const {
    return static_cast<Sluice::SchanStatus>(answers.at(number * 8));
  }

 protected:
  void fillCmd(std::span<std::uint32_t> buf) override {
    ++fills;
    std::memcpy(buf.data(), &message_, buf.size_bytes());
  }
  void readResp(std::span<std::uint32_t const> buf) override {
    ++reads;
    answers.assign(buf.begin(), buf.end());
  }

 private:
  Sluice::Fapmask faps_;
  Sluice::schan_xmsg_user_ message_{};
  std::vector<Sluice::BulkTransfer> transfers_;
  std::optional<Sluice::FlushPass> pass_;

 public:
  std::size_t answerWords;
  unsigned messageWords = 32;
  unsigned fills = 0;
  unsigned reads = 0;
  Words answers;
  Sluice::SchanResponse* block = nullptr;
};

template <class... Args>
Dovel::Ptr<TestCmd> cmd(Args&&... args) {
  return Dovel::ptrIsImpl<TestCmd>(std::forward<Args>(args)...);
}

inline Dovel::Ptr<Sluice::SchanCmds> listOf(std::initializer_list<Dovel::Ptr<TestCmd>> cmds) {
  Dovel::Ptr<Sluice::SchanCmds> list = Sluice::schanCmdsFactory();
  for (auto const& one : cmds) list->cmdEnq(one);
  return list;
}

inline Dovel::Ptr<Chip::SoftwareChip> chipOf(unsigned faps, Dovel::String const& directory = {}) {
  // Room for few entries, so that files are small.
  return Dovel::ptrIsImpl<Chip::SoftwareChip>(Chip::SoftwareChip::Options{faps, directory, 1024});
}

// One buffer that the chip can see.
class Dma {
 public:
  explicit Dma(std::size_t bytes = 65536)
      : pool_(Dovel::ptrIsImpl<DmaMemPoolManager::LocalMemPool>("test", bytes, 2U, 0x40000000U)),
        buffer_(dmaMemPoolBufferFactory(pool_)) {}

  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> pool() const { return pool_; }
  std::byte* bytes() const { return reinterpret_cast<std::byte*>(buffer_->va()); }
  std::uint64_t address() const { return buffer_->dmaAddrInfo().dmaAddress; }

  // Rows of that content and the next ones, one behind the other.
  void fill(Place const& place, std::uint32_t rows, unsigned content) const {
    for (std::uint32_t row = 0; row < rows; ++row)
      std::memcpy(bytes() + std::size_t{row} * place.rowBytes, rowOf(place, content + row).data(),
                  place.rowBytes);
  }
  RowBytes row(Place const& place, std::uint32_t number) const {
    std::byte const* const at = bytes() + std::size_t{number} * place.rowBytes;
    return {at, at + place.rowBytes};
  }
  Sluice::BulkTransfer transfer(Sluice::SchanOpcode opcode, Place const& place, std::uint32_t rows) const {
    return {opcode, place.block, place.row, rows, place.rowBytes, address()};
  }
  Sluice::BulkTransfer write(Place const& place, std::uint32_t rows) const {
    return transfer(Sluice::SchanOpcode::memoryWrite, place, rows);
  }
  Sluice::BulkTransfer read(Place const& place, std::uint32_t rows) const {
    return transfer(Sluice::SchanOpcode::memoryRead, place, rows);
  }

 private:
  Dovel::Ptr<DmaMemPoolManager::LocalMemPool> pool_;
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer> buffer_;
};

// What the chip has in the row.
inline RowBytes rowIn(Chip::SoftwareChip const& chip, Place const& place, unsigned fap = 0) {
  RowBytes bytes(place.rowBytes);
  return chip.rowRead(fap, place.block, place.row, bytes) ? bytes : RowBytes();
}

// The answer to a message or a bulk transfer that is run on the chip without a channel.
inline Sluice::SchanResponse answerTo(Chip::SoftwareChip& chip, Sluice::schan_xmsg_user_ const& message,
                                      unsigned fap = 0) {
  Sluice::SchanResponse response;
  chip.message(fap, message, response);
  return response;
}
inline Sluice::SchanResponse answerTo(Chip::SoftwareChip& chip, Sluice::BulkTransfer const& transfer,
                                      unsigned fap = 0) {
  Sluice::SchanResponse response;
  chip.bulk(fap, transfer, response);
  return response;
}

}  // namespace TestSupport
