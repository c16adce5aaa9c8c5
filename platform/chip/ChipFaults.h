// The faults that a chip model is asked to show. One thread, that of the chip.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "platform/switch/Sluice/FapId.h"
#include "platform/switch/Sluice/SchanMessage.h"

namespace Chip {

// One that strikes once.
struct ChipFault {
  enum class Kind : std::uint8_t {
    refuse,          // answers with the status and does nothing
    loseAnswer,      // does it and never answers
    lateAnswer,      // does it and answers at the end of the `after`th command from then
    flipBit,         // turns one bit of the data that is written, of the row in the middle
    resetInTransfer  // half of the rows are moved, then the FAP resets itself; never answers
  };

  Kind kind = Kind::refuse;
  Sluice::FapId fap = 0;
  // Counts what the FAP is given from now on, from 1 (0 strikes never): messages and bulk transfers; of
  // those, for flipBit, the ones that write, and for resetInTransfer the bulk transfers.
  std::uint64_t nth = 1;
  Sluice::SchanStatus status = Sluice::SchanStatus::badAddress;  // refuse
  std::uint64_t after = 1;                                       // lateAnswer
  std::uint32_t bit = 0;                                         // flipBit; of the row, modulo its bits
};

class ChipFaults {
 public:
  void faultIs(ChipFault const& fault);
  // From now on all that touches one of the rows is refused with the status, on every FAP.
  void refusedRowsAre(std::uint32_t block, std::uint32_t row, std::uint32_t rows, Sluice::SchanStatus status);
  // From now on each command is refused with that probability, by numbers that depend on the seed alone.
  void randomRefusalIs(std::uint64_t seed, double probability, Sluice::SchanStatus status);
  void faultsDel();

  bool any() const { return any_; }

  // What a command is and what it touches.
  struct Command {
    Sluice::FapId fap;
    bool bulk;
    bool writes;
    std::uint32_t block;
    std::uint32_t row;
    std::uint32_t rows;
  };
  // What it meets, of which several things may come together; where it is refused, nothing else happens.
  struct Met {
    std::optional<Sluice::SchanStatus> refusal;
    bool answerLost = false;
    std::uint64_t answerAfter = 0;  // 0: at once
    std::optional<std::uint32_t> flippedBit;
    bool resetInTransfer = false;
  };
  // Is asked once a command.
  Met met(Command const& command);

 private:
  struct Rows {
    std::uint32_t block;
    std::uint32_t row;
    std::uint32_t rows;
    Sluice::SchanStatus status;

    bool touchedBy(Command const& command) const;
  };

  bool randomlyRefused();

  bool any_ = false;
  std::vector<ChipFault> faults_;
  std::vector<Rows> refusedRows_;
  std::mt19937_64 random_;
  double refusalProbability_ = 0;
  Sluice::SchanStatus refusalStatus_{};
};

}  // namespace Chip
