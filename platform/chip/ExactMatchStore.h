// The entries of one physical table, in buckets of four: a key has two buckets that it may stand in, and
// never moves once it stands.
//
// One thread changes entries; any others look keys up meanwhile, without locks. Invariants:
//  1. A slot's words change only while its control word doesn't say held.
//  2. A control word that says held has a stamp that no other one of the table ever had, so words between
//     two equal ones are those of one entry.
//  3. A change of an entry that is held shows as being changed, never as free: who looks its key up waits.
//     What it changes to stands in the head before, so that the next process makes a change whole that this
//     one didn't live to end.
// Each store has release order and each load of a look-up acquire, plain moves on x86-64; that also keeps
// the order in which a killed process leaves things.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/chip/ChipObserver.h"
#include "platform/chip/ChipState.h"
#include "platform/chip/ExactMatchEntry.h"
#include "platform/chip/ExactMatchMap.h"

namespace Chip {

// What a key is found by: the tid is part of it.
class ExactMatchKey {
 public:
  // Of the entry nothing but the key's bits counts.
  ExactMatchKey(ExactMatchDatabase const& database, ExactMatchEntry const& entry);

  bool isOf(ExactMatchEntry const& entry) const {
    return (((entry.words[0] ^ first_) & mask_) | ((entry.words[2] ^ last_) & ExactMatchEntry::kTidMask)) ==
           0;
  }
  std::uint64_t hash() const { return hash_; }

 private:
  std::uint64_t mask_;
  std::uint64_t first_;
  std::uint64_t last_;
  std::uint64_t hash_;
};

class ExactMatchStore {
 public:
  static constexpr unsigned kWays = 4;
  static constexpr unsigned kCandidates = 2;

  // A place, and which of its key's buckets that is in, from 0.
  struct Spot {
    std::uint32_t slot;
    unsigned candidate;

    unsigned way() const { return slot % kWays; }
  };
  // Where the key stands; or else where it would: in the emptier one of its buckets, nowhere where they are
  // full.
  struct Search {
    std::optional<Spot> held;
    std::optional<Spot> free;
  };

  // The state is the caller's. What a process has left there half-done is put in order.
  ExactMatchStore(Sluice::FapId fap, std::size_t table, ChipState& state);

  void observerIs(ChipObserver* observer) { observer_ = observer; }
  // In how many of its buckets a new key may be put, 1 or 2; keys are found in both.
  void candidatesAre(unsigned candidates) { candidates_ = candidates; }

  std::uint32_t slots() const { return buckets_ * kWays; }
  // The database with that tid; null where this physical table has none.
  ExactMatchDatabase const* database(std::uint32_t tid) const { return ExactMatchMap::at(table_, tid); }

  Search search(ExactMatchKey const& key) const;
  // Has the key's buckets brought near.
  void prefetch(ExactMatchKey const& key) const;

  // Puts the entry into a free slot; false where the file system has no room for it.
  bool insert(std::uint32_t slot, ExactMatchEntry const& entry);
  // Of a slot that is held, by an entry with the same key.
  void replace(std::uint32_t slot, ExactMatchEntry const& entry);
  void remove(std::uint32_t slot);

  // The first slot from that one on that holds an entry of the database; slots() where none does.
  std::uint32_t next(ExactMatchDatabase const& database, std::uint32_t from) const;
  ExactMatchEntry entry(std::uint32_t slot) const;

  // From any thread. A key that the table holds throughout is found, whatever becomes of its entry.
  std::optional<ExactMatchEntry> lookUp(ExactMatchKey const& key) const;

 private:
  struct Slot;
  // A bit for each slot of a bucket.
  struct Ways {
    unsigned held;
    unsigned hit;  // those of them that hold the key
  };

  std::uint32_t bucket(ExactMatchKey const& key, unsigned candidate) const;
  Ways waysOf(std::uint32_t first, ExactMatchKey const& key) const;
  bool isHeld(std::uint32_t slot) const;
  void wordsAre(Slot& slot, ExactMatchEntry const& entry);
  void close(Slot& slot);
  void tell(std::uint32_t tid, ExactMatchEntry const* before, ExactMatchEntry const* after);
  void finishChange();
  void dropUnsound();
  bool isSound(std::uint32_t slot) const;

  Sluice::FapId fap_;
  std::size_t table_;
  ChipState& state_;
  ExactMatchHead& head_;
  SparseMemory& memory_;
  Slot* slots_;
  std::uint32_t buckets_;
  unsigned candidates_ = kCandidates;
  ChipObserver* observer_ = nullptr;
};

}  // namespace Chip
