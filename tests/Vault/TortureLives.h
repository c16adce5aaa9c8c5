// What a writer and a reader do all their lives while they are tortured, each step by seed, and what they
// tell each other about it. In processes of their own they share a World by a mapping, in threads as it
// stands.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include "tests/Vault/TortureHistory.h"
#include "tests/Vault/TortureRecord.h"

namespace Torture {

inline constexpr std::uint32_t kKeys = 1500;
inline constexpr std::size_t kReaders = 4;

// Counts of all the lives of one reader.
struct ReaderTally {
  std::atomic<std::uint64_t> answers{0};  // of all kinds
  std::atomic<std::uint64_t> found{0};
  std::atomic<std::uint64_t> missed{0};
  std::atomic<std::uint64_t> walks{0};
  std::atomic<std::uint64_t> slots{0};
  std::atomic<std::uint64_t> attaches{0};
  std::atomic<std::uint64_t> replacements{0};
  std::atomic<std::uint64_t> lookasideReads{0};
  std::atomic<std::uint64_t> restarts{0};
  std::atomic<std::uint64_t> resizes{0};
};

struct World {
  std::array<KeyHistory, kKeys> keys;
  std::array<ReaderTally, kReaders> readers;

  // Operations of the writer. Where the two differ it is in the middle of one.
  std::atomic<std::uint64_t> begun{0};
  std::atomic<std::uint64_t> done{0};
  // Whether there is a table that readers can attach.
  std::atomic<bool> isThere{false};
  // The files are being removed, or the next writer is yet to find out that they are.
  std::atomic<bool> isRemoved{false};
  std::atomic<std::uint64_t> wipes{0};
  std::atomic<std::uint64_t> removedTables{0};
  std::atomic<std::uint64_t> slotGrows{0};
  std::atomic<std::uint64_t> slotShrinks{0};
  std::atomic<std::uint64_t> slotsMoved{0};
  std::atomic<bool> ends{false};

  // The first who finds something wrong says what. Nothing happens where nothing is wrong.
  void complain(std::string const& trouble);
  bool isComplained() const { return complaint_ != 0; }
  std::string complaint() const;

 private:
  std::atomic<int> complaint_{0};  // 1 while it is being written, 2 then
  std::array<char, 1000> text_{};
};

class WriterLife {
 public:
  // removesTables: from time to time the whole table is removed and made anew.
  WriterLife(World& world, std::string path, std::uint64_t seed, bool removesTables);

  // Takes over what an earlier life left.
  void attach();
  void step();
  Writer& writer() { return *writer_; }

 private:
  void recover();
  Version find(std::uint32_t number);
  void write(std::uint32_t number);
  void writeDirectly(std::uint32_t number);
  void remove(std::uint32_t number);
  void removeTable();
  void tally();
  std::uint32_t pick(std::uint32_t below) { return static_cast<std::uint32_t>(random_()) % below; }

  World& world_;
  std::string const path_;
  bool const removesTables_;
  std::mt19937_64 random_;
  std::unique_ptr<Writer> writer_;
  Vault::Writer::Counters tallied_;
};

class ReaderLife {
 public:
  ReaderLife(World& world, ReaderTally& tally, std::string path, std::uint64_t seed);

  // One question, or an attempt to attach.
  void step();

 private:
  bool attach();
  void lookUp(std::uint32_t number);
  void walk();
  void readSlot();
  void publishCounters();
  // Whether the answer is one of the table; else the table is given up.
  bool isAnswered();
  std::uint32_t pick(std::uint32_t below) { return static_cast<std::uint32_t>(random_()) % below; }

  World& world_;
  ReaderTally& tally_;
  std::string const path_;
  std::mt19937_64 random_;
  std::unique_ptr<Reader> reader_;
  Vault::Reader::Counters published_;
};

}  // namespace Torture
