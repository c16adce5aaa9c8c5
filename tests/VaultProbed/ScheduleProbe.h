// Decides, wherever a reader is about to look at what its writer changes, how far the writer gets before.
//
// Two ways to go through all schedules. `every`: at each look of the reader the writer either rests or goes
// on up to one of the later changes of the very word that is looked at. What a reader does depends on nothing
// but the words that it sees, and a writer that goes on later than it could leaves more schedules open, so
// each schedule there is, with any number of preemptions, has the outcome of one of these. `preempted`: the
// writer may go on to any position, as long as preemptions are left.
//
// A reader that has seen the same as in a schedule before, and finds its writer at the same position, goes on
// like that one, so it isn't run any further. Those whose writer is farther when they begin come first: less
// may be told to them. One thread.
#pragma once

#include <random>
#include <unordered_set>

#include "tests/VaultProbed/ScheduleStage.h"

namespace ScheduleTests {

// One reader of the stage, and where its mappings stand.
struct Mapping {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  unsigned file = kNoFile;
};
using Mappings = std::array<Mapping, nameCount>;

// Choices are made anew in every run, in order; the last that has an alternative takes it in the next run.
class Choices {
 public:
  // Whether the next choice is one that no run made.
  bool isNew() const { return at_ == choices_.size(); }
  // A number below `count`, of which there are at least two.
  unsigned choose(unsigned count);
  // From the first choice on. False where all runs were made.
  bool next();
  // Chooses at random from here on.
  void randomIs(std::uint64_t seed);

 private:
  struct Choice {
    unsigned taken;
    unsigned count;
  };

  std::vector<Choice> choices_;
  std::size_t at_ = 0;
  bool random_ = false;
  std::mt19937_64 generator_;
};

// Loads of a reader that are done too early, as a processor might where an order is missing.
enum class Hoist {
  none,
  ownSequence,          // a slot's sequence, looked at again before its words are copied
  predecessorSequence,  // that of the link that led to the slot
  slotCount,
  bucketCount,
  generation
};

// plain: like preempted, but at every look of the reader, needed or not, and nothing is left out.
enum class Search { every, preempted, plain, random };

class ScheduleProbe final : public Mem::Probe {
 public:
  // Thrown out of a reader that goes on and on while its writer rests.
  struct Endless {};
  // Thrown out of a reader whose further schedules were all made.
  struct KnownFromHere {};

  // slotCells: the words of a slot.
  ScheduleProbe(Stage& stage, std::size_t slotCells, Hoist hoist = Hoist::none)
      : stage_(stage), slotCells_(slotCells), hoist_(hoist) {}

  void searchIs(Search search, unsigned preemptions) {
    search_ = search;
    preemptions_ = preemptions;
    choices_ = {};
    known_.clear();
  }
  Choices& choices() { return choices_; }
  // Of the reader that is about to run.
  void mappingsAre(Mappings& mappings) { mappings_ = &mappings; }
  // Puts the stage to a position at which the writer rests, for a reader that runs alone.
  void restAt(Timeline::Position position);
  // A schedule begins: chooses where the writer is by then.
  void start();
  // A call of the reader begins.
  void call();
  // How far the writer has come.
  Timeline::Position position() const { return position_; }
  // What the reader did that no reader does; empty where there is nothing.
  std::string const& misdeed() const { return misdeed_; }

  void load(std::uint64_t const& cell) override;
  void store(std::uint64_t& cell, std::uint64_t value) override;
  void look(char const* file) override;
  void mapped(char const* file, void const* base, std::size_t size) override;
  void beforeCall(char const* call, char const* file) override;

 private:
  // Far more than any call over tables of this size takes.
  static constexpr unsigned kPatience = 20'000;

  struct Place {
    unsigned name;
    unsigned file;
    std::size_t word;
    bool isOf(Place const& other) const { return file == other.file && word == other.word; }
  };
  struct Seen {
    Place place;
    Timeline::Position position;
  };

  void reset();
  void settle();
  void point(std::vector<Timeline::Position> const& changes);
  void choose(std::vector<Timeline::Position> const& changes);
  void stopIfKnown();
  void see(std::vector<Timeline::Position> const& changes);
  bool isBounded() const { return search_ == Search::preempted || search_ == Search::plain; }
  void goOn(Timeline::Position position);
  bool isLink(Place place) const;
  void hoist(Place place);

  Stage& stage_;
  std::size_t const slotCells_;
  Hoist const hoist_;
  Search search_ = Search::every;
  unsigned preemptions_ = 0;
  Choices choices_;
  Mappings* mappings_ = nullptr;
  Timeline::Position last_ = stage_.last();
  Timeline::Position position_ = 0;
  Timeline::Position callBegan_ = 0;
  bool rests_ = false;
  unsigned left_ = 0;
  unsigned sinceWriter_ = 0;
  unsigned calls_ = 0;
  std::uint64_t seen_ = 0;  // all that the reader has seen of changing words
  std::unordered_set<std::uint64_t> known_;
  std::vector<Seen> links_;  // that were looked at during this call
  std::string misdeed_;
};

}  // namespace ScheduleTests
