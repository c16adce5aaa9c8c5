// What goes over the S-channel, the message path to the chip, and what comes back. Plain values; integers are
// in the byte order of the host.
#pragma once

#include <cstdint>
#include <limits>

namespace Sluice {

enum class SchanOpcode : std::uint8_t {
  memoryRead = 7,
  memoryWrite = 9,
  registerRead = 11,
  registerWrite = 13,
  exactMatch = 53,
};

// A message as it goes to the chip. Fields that an opcode doesn't use are 0.
struct schan_xmsg_user_ {
  std::uint32_t header;           // the opcode in the top byte; below it the message's length in bytes
  std::uint32_t block;            // of the instance addressed, as S-channel commands number blocks
  std::uint32_t location;         // the first number of the instance
  std::uint32_t physicalTableId;  // exact match only
  std::uint32_t core;             // exact match only
  std::uint32_t reserved[2];
  std::uint32_t responseRequested;  // 1: the chip is to answer
  std::uint32_t address;            // of a row of a memory, or of a register, in the block
  std::uint32_t addressHigh;
  std::uint32_t data[22];

  static constexpr std::uint32_t kHeaderBytes = 40;
  // The length of a message with that many bytes of data.
  static constexpr std::uint32_t lengthFor(std::uint32_t dataBytes) {
    return kHeaderBytes + (dataBytes + 3) / 4 * 4;
  }
  // Exact-match messages have one length, whatever is in them.
  static constexpr std::uint32_t kExactMatchLength = 64;

  SchanOpcode opcode() const { return static_cast<SchanOpcode>(header >> 24); }
  std::uint32_t length() const { return header & 0xFFFFFF; }
};
static_assert(sizeof(schan_xmsg_user_) == 128);

enum class SchanStatus : std::uint32_t {
  ok = 0,
  bucketFull = 1,   // an exact-match database has no room for the key
  badAddress = 2,   // no such block, row or register, or not of that size
  badDatabase = 3,  // no such exact-match database
  // Stands in a response until the chip has answered.
  noResponse = std::numeric_limits<std::uint32_t>::max(),
};

// What one FAP answers.
struct SchanResponse {
  SchanStatus status = SchanStatus::noResponse;
  std::uint32_t reserved = 0;
  std::uint32_t image[6] = {};  // what was read, or the exact-match entry
};
static_assert(sizeof(SchanResponse) == 32);

// A run of rows between a buffer and a memory of the chip; or, by exactMatch, entries of 24 bytes that the
// chip takes one after the other, each as if a message had brought it. All of them are taken, whatever
// becomes of those before; the answer has the first status that isn't ok, and in its image a BulkEmAnswer.
struct BulkTransfer {
  SchanOpcode opcode = SchanOpcode::memoryWrite;  // memoryRead goes from the chip into the buffer
  std::uint32_t block = 0;
  std::uint32_t row = 0;  // the address of the first one; each further row is at the next address
  std::uint32_t rows = 0;
  std::uint32_t rowBytes = 0;
  std::uint64_t dmaAddress = 0;       // of the first row in the buffer; rows follow each other without gaps
  std::uint32_t physicalTableId = 0;  // exact match only, as is the next
  std::uint32_t core = 0;
};

// In the image of the answer to a bulk transfer of exact-match entries.
struct BulkEmAnswer {
  std::uint32_t refused;  // entries
  std::uint32_t first;    // the number of the first of them in the buffer, from 0
};

}  // namespace Sluice
