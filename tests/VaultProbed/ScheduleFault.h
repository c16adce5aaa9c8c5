// Faults to plant into what a writer was seen to do: stores that are left out, come too late or too early, or
// forget to change a sequence. One thread.
#pragma once

#include <functional>

#include "tests/VaultProbed/ScheduleTimeline.h"

namespace ScheduleTests {

// What a store is for, as far as its place and its value tell.
enum class Role {
  other,
  lookaside,  // a word of the lookaside slot
  contents,   // a word of a slot behind its link
  open,       // of a slot's link: readers are sent to the lookaside slot
  close,      // the value is there
  vacate,     // the slot is no longer occupied
  slotLink,   // it leads elsewhere
  head,       // the same of a bucket
  slotCount,
  bucketCount,
  resizeTold,  // the same count of buckets, but another version
  generation,
  fileSize,
  fileName
};

// A view of a recording, whose steps it numbers from 0.
class FaultyRecording {
 public:
  FaultyRecording(Recording& recording, std::size_t slotCells);

  // The first step of that role from `from` on that changes something, or the last. Throws where there is
  // none.
  std::size_t first(Role role, std::size_t from = 0) const;
  std::size_t last(Role role) const;
  // The first such store to the same word.
  std::size_t nextOf(std::size_t step) const;
  // The last of either role before a step.
  std::size_t linkBefore(std::size_t step) const;
  std::size_t beginOf(std::size_t operation) const { return recording_.operations.at(operation).begin; }
  std::size_t endOf(std::size_t operation) const { return recording_.operations.at(operation).end; }

  // All of these renumber the steps.
  void drop(std::size_t step);
  void dropAll(Role role);
  // Makes a step at once before or behind another, with those made by the same call.
  void moveBefore(std::size_t step, std::size_t other);
  void moveBehind(std::size_t step, std::size_t other);
  // As many steps from the first one on.
  void moveAllBehind(std::size_t begin, std::size_t end, std::size_t other);

  // Leaves the sequence, or the version, as it was before the store; all later stores to the word follow.
  void keepSequence(std::size_t number);
  // Of records whose hash is in one word with the end of the value.
  void forgetLookasideHash();
  Step& step(std::size_t number) { return recording_.steps.at(number); }
  std::uint64_t before(std::size_t number) const { return before_.at(number); }

 private:
  void learn();
  Role roleOf(std::size_t number) const;
  bool isLink(Step const& step) const;

  Recording& recording_;
  std::size_t const slotCells_;
  std::vector<std::uint64_t> before_;
};

}  // namespace ScheduleTests
