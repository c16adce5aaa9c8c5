// One FAP of a SoftwareChip: its memories, and what messages and bulk transfers do to them. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/chip/ChipMemoryMap.h"
#include "platform/chip/ChipState.h"
#include "platform/switch/Sluice/FapId.h"
#include "platform/switch/Sluice/SchanMessage.h"

namespace Chip {

// For tests that watch what a chip holds. Calls come in the middle of the chip's own, so it is given nothing
// to do there.
class ChipObserver {
 public:
  virtual ~ChipObserver() = default;
  // Just before the row changes from one to the other.
  virtual void rowWritten(Sluice::FapId fap, std::uint32_t block, std::uint32_t row,
                          std::span<std::byte const> before, std::span<std::byte const> after) = 0;
  // The FAP has become blank.
  virtual void wasReset(Sluice::FapId fap) = 0;
};

class ChipModel {
 public:
  // Of a message's data or a bulk transfer's rows, the bit that doesn't arrive as it was.
  using FlippedBit = std::optional<std::uint32_t>;

  explicit ChipModel(Sluice::FapId fap) : fap_(fap) {}
  ChipModel(Sluice::FapId fap, Dovel::String const& path) : fap_(fap), state_(path) {}

  // Whether the opcode is one that changes rows.
  static bool writes(Sluice::SchanOpcode opcode);

  void observerIs(ChipObserver* observer) { observer_ = observer; }

  // Runs the message and tells how it went; what was read is in the image then.
  Sluice::SchanStatus message(Sluice::schan_xmsg_user_ const& message, std::span<std::uint32_t, 6> image,
                              FlippedBit flippedBit);

  // The memory that all rows of the transfer lie in; null where the chip has no such rows, or not for that
  // opcode.
  ChipMemory const* memoryOf(Sluice::BulkTransfer const& transfer);
  // Moves that many rows, from the first one on, between the buffer and the memory.
  void move(ChipMemory const& memory, Sluice::BulkTransfer const& transfer, std::uint32_t rows,
            std::byte* buffer, FlippedBit flippedBit);

  bool programmed() const { return state_.programmed(); }
  void reset();

  // False where there is no such row, or not of that size.
  bool rowRead(std::uint32_t block, std::uint32_t row, std::span<std::byte> out) const;

  // Bytes of rows that were read or written.
  std::uint64_t bytesMoved() const { return bytesMoved_; }

 private:
  ChipMemory const* find(std::uint32_t block, std::uint32_t row);
  ChipMemory const* addressed(Sluice::schan_xmsg_user_ const& message);
  void write(ChipMemory const& memory, std::uint32_t row, std::uint32_t rows, std::byte const* data,
             FlippedBit flippedBit);
  void writeRowByRow(ChipMemory const& memory, std::uint32_t row, std::uint32_t rows, std::byte const* data,
                     FlippedBit flippedBit);

  Sluice::FapId fap_;
  ChipState state_;
  ChipMemory const* lastFound_ = nullptr;
  ChipObserver* observer_ = nullptr;
  std::uint64_t bytesMoved_ = 0;
};

}  // namespace Chip
