// One FAP of a SoftwareChip: its memories and exact-match databases, and what messages, bulk transfers and
// passes do to them. One thread, but for look-ups in databases.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/chip/ChipMemoryMap.h"
#include "platform/chip/ChipObserver.h"
#include "platform/chip/ChipState.h"
#include "platform/chip/ExactMatchDatabases.h"
#include "platform/switch/Sluice/FapId.h"
#include "platform/switch/Sluice/SchanMessage.h"

namespace Chip {

class ChipModel {
 public:
  // Of a message's data or a bulk transfer's rows, the bit that doesn't arrive as it was.
  using FlippedBit = std::optional<std::uint32_t>;

  // What the databases of a chip are like.
  struct ExactMatchOptions {
    std::uint32_t entries;  // that a physical table has room for
    unsigned candidates;
  };

  // Without a path in private memory.
  ChipModel(Sluice::FapId fap, ExactMatchOptions const& exactMatch);
  ChipModel(Sluice::FapId fap, ExactMatchOptions const& exactMatch, Dovel::String const& path);

  // Whether the opcode is one that changes rows.
  static bool writes(Sluice::SchanOpcode opcode);

  void observerIs(ChipObserver* observer);

  ExactMatchDatabases& databases() { return databases_; }
  ExactMatchDatabases const& databases() const { return databases_; }

  // Runs a message for a row and tells how it went; what was read is in the image then.
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

  // Bytes of rows and entries that were read or written.
  std::uint64_t bytesMoved() const {
    return bytesMoved_ + databases_.entriesMoved() * ExactMatchEntry::kBytes;
  }

 private:
  ChipMemory const* find(std::uint32_t block, std::uint32_t row);
  ChipMemory const* addressed(Sluice::schan_xmsg_user_ const& message);
  void write(ChipMemory const& memory, std::uint32_t row, std::uint32_t rows, std::byte const* data,
             FlippedBit flippedBit);
  void writeRowByRow(ChipMemory const& memory, std::uint32_t row, std::uint32_t rows, std::byte const* data,
                     FlippedBit flippedBit);

  Sluice::FapId fap_;
  ChipState state_;
  ExactMatchDatabases databases_;
  ChipMemory const* lastFound_ = nullptr;
  ChipObserver* observer_ = nullptr;
  std::uint64_t bytesMoved_ = 0;
};

}  // namespace Chip
