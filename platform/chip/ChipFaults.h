// The faults that a chip model is asked to show. One thread, that of the chip.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "platform/chip/ExactMatchEntry.h"
#include "platform/chip/ExactMatchMap.h"
#include "platform/switch/Sluice/FapId.h"
#include "platform/switch/Sluice/SchanMessage.h"

namespace Chip {

// One that strikes once.
struct ChipFault {
  enum class Kind : std::uint8_t {
    refuse,           // answers with the status and does nothing
    loseAnswer,       // does it and never answers
    lateAnswer,       // does it and answers at the end of the `after`th command from then
    flipBit,          // turns one bit of the data that is written, of the row or entry in the middle
    resetInTransfer,  // half of the rows or entries are moved, then the FAP resets itself; never answers
    failPass,         // half of what the pass selects is worked on, then it answers with the status
    slowPass          // pauses `after` microseconds behind each `every` entries that the pass works on
  };

  Kind kind = Kind::refuse;
  Sluice::FapId fap = 0;
  // Counts what the FAP is given from now on, from 1 (0 strikes never): messages, bulk transfers and passes;
  // of those, for flipBit, the messages and transfers that write, for resetInTransfer the bulk transfers, and
  // for failPass and slowPass the passes.
  std::uint64_t nth = 1;
  // refuse and failPass; by noResponse nothing is answered.
  Sluice::SchanStatus status = Sluice::SchanStatus::badAddress;
  std::uint64_t after = 1;    // lateAnswer and slowPass
  std::uint32_t bit = 0;      // flipBit; of the row or entry, modulo its bits
  std::uint64_t every = 256;  // slowPass
};

// What is asked of a pass beside its work, for tests.
struct PassFault {
  // Does half of its work and then answers with the status, which may be noResponse.
  std::optional<Sluice::SchanStatus> breaksOff;
  // Pauses that many microseconds after each `every` entries.
  std::uint64_t pause = 0;
  std::uint64_t every = 0;
};

class ChipFaults {
 public:
  void faultIs(ChipFault const& fault);
  // From now on all that touches one of the rows is refused with the status, on every FAP.
  void refusedRowsAre(std::uint32_t block, std::uint32_t row, std::uint32_t rows, Sluice::SchanStatus status);
  // From now on each entry of the database with that entry's key is refused with the status, by message or in
  // a bulk transfer, on every FAP. Passes take no heed. Nothing where there is no such database.
  void refusedKeyIs(std::uint32_t physicalTable, ExactMatchEntry const& entry, Sluice::SchanStatus status);
  // From now on each command is refused with that probability, by numbers that depend on the seed alone; or
  // is done and never answered; or is done and answered 1 to `most` commands later.
  void randomRefusalIs(std::uint64_t seed, double probability, Sluice::SchanStatus status);
  void randomLossIs(std::uint64_t seed, double probability);
  void randomLateIs(std::uint64_t seed, double probability, std::uint64_t most);
  void faultsDel();

  bool any() const { return any_; }

  // What a command is and what it touches.
  struct Command {
    enum class What : std::uint8_t { message, bulk, pass };

    Sluice::FapId fap;
    What what;
    bool writes;
    std::uint32_t block;
    std::uint32_t row;
    std::uint32_t rows;  // 0 of exact match
  };
  // What it meets, of which several things may come together; where it is refused, nothing else happens.
  struct Met {
    std::optional<Sluice::SchanStatus> refusal;
    bool answerLost = false;
    std::uint64_t answerAfter = 0;  // 0: at once
    std::optional<std::uint32_t> flippedBit;
    bool resetInTransfer = false;
    PassFault pass;
  };
  // Is asked once a command.
  Met met(Command const& command);

  bool refusesKeys() const { return !refusedKeys_.empty(); }
  // Is asked for each entry.
  std::optional<Sluice::SchanStatus> keyRefusal(ExactMatchDatabase const& database,
                                                ExactMatchEntry const& entry) const;

 private:
  struct Rows {
    std::uint32_t block;
    std::uint32_t row;
    std::uint32_t rows;
    Sluice::SchanStatus status;

    bool touchedBy(Command const& command) const;
  };
  struct Key {
    ExactMatchDatabase const* database;
    std::uint64_t bits;
    Sluice::SchanStatus status;
  };
  struct Chance {
    std::mt19937_64 random;
    double probability = 0;

    bool strikes();
  };

  bool any_ = false;
  std::vector<ChipFault> faults_;
  std::vector<Rows> refusedRows_;
  std::vector<Key> refusedKeys_;
  Chance refusal_;
  Chance loss_;
  Chance late_;
  Sluice::SchanStatus refusalStatus_{};
  std::uint64_t latest_ = 1;
};

}  // namespace Chip
