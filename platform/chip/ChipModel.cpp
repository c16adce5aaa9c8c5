#include "platform/chip/ChipModel.h"

#include <array>
#include <cstring>

namespace Chip {

using Sluice::BulkTransfer;
using Sluice::SchanOpcode;
using Sluice::SchanStatus;
using Message = Sluice::schan_xmsg_user_;

namespace {

// Whether that opcode is one for memories of the kind.
bool isFor(SchanOpcode opcode, ChipMemory::Kind kind) {
  switch (opcode) {
    case SchanOpcode::memoryRead:
    case SchanOpcode::memoryWrite:
      return kind == ChipMemory::Kind::memory;
    case SchanOpcode::registerRead:
    case SchanOpcode::registerWrite:
      return kind == ChipMemory::Kind::chipRegister;
    default:
      return false;
  }
}

}  // namespace

ChipModel::ChipModel(Sluice::FapId fap, ExactMatchOptions const& exactMatch)
    : fap_(fap), state_(exactMatch.entries), databases_(fap, state_, exactMatch.candidates) {}

ChipModel::ChipModel(Sluice::FapId fap, ExactMatchOptions const& exactMatch, Dovel::String const& path)
    : fap_(fap), state_(exactMatch.entries, path), databases_(fap, state_, exactMatch.candidates) {}

void ChipModel::observerIs(ChipObserver* observer) {
  observer_ = observer;
  databases_.observerIs(observer);
}

bool ChipModel::writes(SchanOpcode opcode) {
  return opcode == SchanOpcode::memoryWrite || opcode == SchanOpcode::registerWrite;
}

ChipMemory const* ChipModel::find(std::uint32_t block, std::uint32_t row) {
  // Commands come in runs that stay in one memory.
  if (lastFound_ != nullptr && lastFound_->has(block, row, 1)) return lastFound_;
  ChipMemory const* const found = ChipMemoryMap::find(block, row);
  if (found != nullptr) lastFound_ = found;
  return found;
}

ChipMemory const* ChipModel::addressed(Message const& message) {
  if (message.location != 0 || message.addressHigh != 0) return nullptr;
  ChipMemory const* const memory = find(message.block, message.address);
  return memory != nullptr && isFor(message.opcode(), memory->kind) ? memory : nullptr;
}

SchanStatus ChipModel::message(Message const& message, std::span<std::uint32_t, 6> image,
                               FlippedBit flippedBit) {
  ChipMemory const* const memory = addressed(message);
  if (memory == nullptr) return SchanStatus::badAddress;
  if (writes(message.opcode())) {
    if (message.length() != Message::lengthFor(memory->rowBytes)) return SchanStatus::badAddress;
    write(*memory, message.address, 1, reinterpret_cast<std::byte const*>(message.data), flippedBit);
  } else {
    if (memory->rowBytes > image.size_bytes()) return SchanStatus::badAddress;
    std::memcpy(image.data(), state_.row(*memory, message.address), memory->rowBytes);
  }
  bytesMoved_ += memory->rowBytes;
  return SchanStatus::ok;
}

ChipMemory const* ChipModel::memoryOf(BulkTransfer const& transfer) {
  ChipMemory const* const memory = find(transfer.block, transfer.row);
  bool const fits = memory != nullptr && isFor(transfer.opcode, memory->kind) && transfer.rows != 0 &&
                    memory->has(transfer.block, transfer.row, transfer.rows) &&
                    transfer.rowBytes == memory->rowBytes;
  return fits ? memory : nullptr;
}

void ChipModel::move(ChipMemory const& memory, BulkTransfer const& transfer, std::uint32_t rows,
                     std::byte* buffer, FlippedBit flippedBit) {
  std::size_t const bytes = std::size_t{rows} * memory.rowBytes;
  if (writes(transfer.opcode)) {
    write(memory, transfer.row, rows, buffer, flippedBit);
  } else {
    std::memcpy(buffer, state_.row(memory, transfer.row), bytes);
  }
  bytesMoved_ += bytes;
}

void ChipModel::write(ChipMemory const& memory, std::uint32_t row, std::uint32_t rows, std::byte const* data,
                      FlippedBit flippedBit) {
  state_.programmedIs();
  if (observer_ != nullptr || flippedBit) [[unlikely]]
    return writeRowByRow(memory, row, rows, data, flippedBit);
  std::memcpy(state_.row(memory, row), data, std::size_t{rows} * memory.rowBytes);
}

void ChipModel::writeRowByRow(ChipMemory const& memory, std::uint32_t row, std::uint32_t rows,
                              std::byte const* data, FlippedBit flippedBit) {
  for (std::uint32_t number = 0; number < rows; ++number, data += memory.rowBytes) {
    std::array<std::byte, ChipMemory::kMaxRowBytes> arrived;
    std::memcpy(arrived.data(), data, memory.rowBytes);
    if (flippedBit && number == rows / 2)
      arrived[*flippedBit / 8 % memory.rowBytes] ^= std::byte{1} << *flippedBit % 8;
    std::byte* const at = state_.row(memory, row + number);
    if (observer_ != nullptr)
      observer_->rowWritten(fap_, memory.block, row + number, {at, memory.rowBytes},
                            {arrived.data(), memory.rowBytes});
    std::memcpy(at, arrived.data(), memory.rowBytes);
  }
}

void ChipModel::reset() {
  state_.reset();
  if (observer_ != nullptr) observer_->wasReset(fap_);
}

bool ChipModel::rowRead(std::uint32_t block, std::uint32_t row, std::span<std::byte> out) const {
  ChipMemory const* const memory = ChipMemoryMap::find(block, row);
  if (memory == nullptr || out.size() != memory->rowBytes) return false;
  std::memcpy(out.data(), state_.row(*memory, row), out.size());
  return true;
}

}  // namespace Chip
