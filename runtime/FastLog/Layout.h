// The layout of a log file, drawn in docs/fastlog.md. All numbers are little-endian; every word that changes
// after the file is made is an aligned 64-bit word, read and written by word() alone.
//
//   header | descriptors, appended | ring of cells
//
// Invariants, on which the writers and the decoder rely:
//  1. A message owns the positions that one addition to `reservedCells` gave it. Position p lies in cell p %
//     cellCount.
//  2. A cell's tag names the position that it holds. Only the writer that has set the tag to its own position
//     with kWriting, by compare-and-swap, stores into the payload; nobody takes a cell that is being written.
//  3. The tag without kWriting is stored last, with release. A tag that reads the same before and after the
//     payload was read, the second time behind an acquire fence, vouches for the payload.
//  4. A descriptor is stored before `describedBytes` covers it, with release, and before its id is given out.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace FastLog {

inline constexpr std::uint64_t kMagic = 0x31474f4c46545748;  // "HWTFLOG1"
inline constexpr std::uint64_t kVersion = 1;

struct FileHeader {
  std::uint64_t magic;  // stored last
  std::uint64_t version;
  std::uint64_t descriptorOffset;
  std::uint64_t descriptorBytes;
  std::uint64_t ringOffset;
  std::uint64_t cellCount;
  std::uint64_t pid;
  std::uint64_t startTime;       // nanoseconds since 1970
  std::uint64_t startTicks;      // the time-stamp counter at startTime
  std::uint64_t ticksPerSecond;  // refined while the process runs
  std::uint64_t program[4];      // the process's name, padded with zeroes
  std::uint64_t spare1[2];
  std::uint64_t describedBytes;  // of the descriptors
  std::uint64_t spare2[7];
  std::uint64_t startedMessages;
  std::uint64_t reservedCells;
};
static_assert(offsetof(FileHeader, magic) == 0);
static_assert(offsetof(FileHeader, version) == 8);
static_assert(offsetof(FileHeader, descriptorOffset) == 16);
static_assert(offsetof(FileHeader, descriptorBytes) == 24);
static_assert(offsetof(FileHeader, ringOffset) == 32);
static_assert(offsetof(FileHeader, cellCount) == 40);
static_assert(offsetof(FileHeader, pid) == 48);
static_assert(offsetof(FileHeader, startTime) == 56);
static_assert(offsetof(FileHeader, startTicks) == 64);
static_assert(offsetof(FileHeader, ticksPerSecond) == 72);
static_assert(offsetof(FileHeader, program) == 80);
static_assert(offsetof(FileHeader, describedBytes) == 128);
static_assert(offsetof(FileHeader, startedMessages) == 192);
static_assert(offsetof(FileHeader, reservedCells) == 200);
static_assert(sizeof(FileHeader) == 208);
inline constexpr std::uint64_t kHeaderBytes = 4096;

// One call site. Behind it, without gaps: one ArgumentKind an argument, the file, the format, zeroes up to a
// word.
struct Descriptor {
  std::uint32_t bytes;  // with all that follows
  std::uint32_t id;
  std::uint32_t line;
  std::uint16_t fileBytes;
  std::uint16_t formatBytes;
  std::uint64_t argumentCount;
};
static_assert(offsetof(Descriptor, bytes) == 0);
static_assert(offsetof(Descriptor, id) == 4);
static_assert(offsetof(Descriptor, line) == 8);
static_assert(offsetof(Descriptor, fileBytes) == 12);
static_assert(offsetof(Descriptor, formatBytes) == 14);
static_assert(offsetof(Descriptor, argumentCount) == 16);
static_assert(sizeof(Descriptor) == 24);

// A string takes two bytes of length and its bytes, anything else eight bytes; none is aligned.
enum class ArgumentKind : char {
  signedNumber = 'i',
  unsignedNumber = 'u',
  truth = 'b',
  character = 'c',
  floating = 'd',
  address = 'p',
  string = 's',
};

inline constexpr std::size_t kPayloadWords = 7;

struct Cell {
  std::uint64_t tag;
  std::uint64_t payload[kPayloadWords];
};
static_assert(offsetof(Cell, tag) == 0);
static_assert(offsetof(Cell, payload) == 8);
static_assert(sizeof(Cell) == 64);

// A message's payload, all cells taken together: ticks, Subject, the arguments' bytes.
inline constexpr std::size_t kMaxMessageCells = 16;
inline constexpr std::size_t kMaxMessageWords = kMaxMessageCells * kPayloadWords;
inline constexpr std::size_t kLeadWords = 2;
inline constexpr std::size_t kMaxArgumentBytes = (kMaxMessageWords - kLeadWords) * 8;

inline constexpr std::size_t wordsOf(std::size_t argumentBytes) {
  return kLeadWords + (argumentBytes + 7) / 8;
}
inline constexpr std::size_t cellsOf(std::size_t argumentBytes) {
  return (wordsOf(argumentBytes) + kPayloadWords - 1) / kPayloadWords;
}

// The second word of a message: id in bits 0..15, bytes of the arguments in 16..31, cut in 32, thread id
// in 33..63.
struct Subject {
  std::uint32_t id;
  std::uint32_t argumentBytes;
  bool cut;
  std::uint32_t thread;

  static constexpr std::uint32_t kMaxId = 0xffff;

  constexpr std::uint64_t word() const {
    return id | std::uint64_t{argumentBytes} << 16 | std::uint64_t{cut ? 1U : 0U} << 32 |
           std::uint64_t{thread} << 33;
  }
  static constexpr Subject fromWord(std::uint64_t word) {
    return {static_cast<std::uint32_t>(word & 0xffff), static_cast<std::uint32_t>(word >> 16 & 0xffff),
            (word >> 32 & 1) != 0, static_cast<std::uint32_t>(word >> 33)};
  }
};
static_assert(kMaxArgumentBytes <= 0xffff);

// A cell's tag: part of the message in bits 0..3, cells of the message less one in 4..7, position plus one
// in 8..62, being written in 63. A cell that was never used holds 0.
struct Tag {
  std::uint64_t place;  // position plus one
  std::size_t part;
  std::size_t cells;

  static constexpr std::uint64_t kWriting = std::uint64_t{1} << 63;

  constexpr std::uint64_t word() const { return part | (cells - 1) << 4 | place << 8; }
  static constexpr Tag fromWord(std::uint64_t word) {
    return {(word & ~kWriting) >> 8, static_cast<std::size_t>(word & 0xf),
            static_cast<std::size_t>(word >> 4 & 0xf) + 1};
  }
};
static_assert(kMaxMessageCells == 16);

inline std::atomic_ref<std::uint64_t> word(std::uint64_t& shared) {
  return std::atomic_ref<std::uint64_t>(shared);
}

}  // namespace FastLog
