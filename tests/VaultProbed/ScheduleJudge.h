// Says of what a reader was told, and of when, whether it could be so. What is current at a position is what
// a reader finds that has the table for itself there, while the writer rests; of that in turn the judge knows
// that it must be what the finished operations left, or that with the one in progress. One thread.
#pragma once

#include <optional>

#include "tests/VaultProbed/ScheduleParties.h"
#include "tests/VaultProbed/ScheduleTimeline.h"

namespace ScheduleTests {

// Versions by the place of the key in the order of iteration; 0 where there is no record.
using Contents = std::vector<std::uint32_t>;

struct Moment {
  // As one finds it who was attached at the start, unless its generation has ended.
  Contents contents;
  bool isGone = false;
  std::vector<Answer> slots;
  // As one finds it who comes anew; none where the table can't be attached to.
  std::optional<Contents> fresh;
};

// From where the writer was when a call began to where it was when the call was over.
struct Window {
  Timeline::Position begin = 0;
  Timeline::Position end = 0;
};

// All functions return a reproach, empty where there is none.
class Judge {
 public:
  // The keys in the order of iteration, and the contents after 0, 1 and more of the operations.
  Judge(std::vector<Key> keys, std::vector<Contents> models)
      : keys_(std::move(keys)), models_(std::move(models)) {}

  std::vector<Key> const& keys() const { return keys_; }
  // Of the position that follows those known.
  std::string add(Moment moment, Timeline const& timeline);

  std::string lookup(std::size_t key, Answer const& answer, Window window) const;
  std::string lookupFresh(std::size_t key, Answer const& answer, Window window) const;
  std::string refusal(Window window) const;
  // That nothing stands between two records, or before the first and after the last.
  std::string step(std::optional<Answer> const& before, Answer const& answer, Window window) const;
  std::string slot(std::uint32_t slot, Answer const& answer, Window window) const;
  // Of a reader that was told that its generation has ended, or wasn't.
  std::string told(bool isTold, Window window) const;

  // The place of a key; the number of keys for one that nobody wrote.
  std::size_t placeOf(Key const& key) const;

 private:
  template <class Is>
  bool ever(Window window, Is&& is) const;
  // Of the generation that the reader is attached to.
  template <class Is>
  bool everAttached(Window window, Is&& is) const;

  std::vector<Key> const keys_;
  std::vector<Contents> const models_;
  std::vector<Moment> moments_;
};

}  // namespace ScheduleTests
