// Runs a reader through all schedules with a writer whose steps were taken down. One thread.
#pragma once

#include <functional>
#include <set>

#include "tests/VaultProbed/ScheduleJudge.h"
#include "tests/VaultProbed/ScheduleProbe.h"
#include "tests/support/Files.h"

namespace ScheduleTests {

struct Scenario {
  Table table;
  std::vector<Key> keys;          // in the order of iteration
  std::vector<Operation> before;  // makes the table that the reader attaches to
  std::vector<Operation> meanwhile;
  bool writerDied = false;  // in between: the table is wiped when it is attached again
  bool isLong = false;      // of so many operations that not all schedules are made unless that is asked for
};

// What a reader does in a schedule.
struct Program {
  enum Kind { lookup, walk, slot, comeAnew };

  Kind kind = lookup;
  std::size_t key = 0;  // its place, or the slot

  std::string text() const;
};

// Changes what was taken down, before readers meet it.
using Fault = std::function<void(Recording&)>;

struct Outcome {
  std::uint64_t schedules = 0;
  bool isAll = true;     // else: so many of all, all with three preemptions, and some beyond
  std::string reproach;  // of the first schedule that went wrong
};

class Explorer {
 public:
  explicit Explorer(Scenario const& scenario, Fault const& fault = {}, Hoist hoist = Hoist::none);

  // What is wrong already where a reader has the table for itself, at every step after which the writer may
  // have died.
  std::string const& reproach() const { return reproach_; }
  Timeline const& timeline() const { return timeline_; }
  Judge const& judge() const { return judge_; }
  // All that can be asked of this table.
  std::vector<Program> programs() const;

  // At most so many schedules of each kind of search, but for those with up to three preemptions: of these
  // all, or none.
  Outcome explore(Program const& program, std::uint64_t budget, bool allOfThree = true);
  // Everything that is told to a reader in any schedule of a search, all of which are made.
  std::set<std::string> allAnswers(Program const& program, Search search, unsigned preemptions);

 private:
  // A reader that has the table mapped as it was at first.
  struct Reader {
    std::unique_ptr<ReadingParty> party;
    Mappings mappings;
    std::uint64_t resizes = 0;
  };

  void attach(Reader& reader);
  bool isAsNew(Reader const& reader) const;
  void takeMoments();
  Moment momentOf(Reader& reader);
  std::optional<Contents> freshContents();
  Contents contentsOf(ReadingParty& party) const;

  bool search(Program const& program, Search search, unsigned preemptions, std::uint64_t budget,
              Outcome& outcome);
  std::string run(Program const& program);
  std::string runWith(ReadingParty& party, Program const& program);
  std::string walk(ReadingParty& party);
  std::string comeAnew(ReadingParty& party, std::size_t key);
  template <class Call, class Check>
  std::string called(ReadingParty const& party, Call&& call, Check&& check);

  Scenario const scenario_;
  TestSupport::TempDir const directory_;
  Timeline const timeline_;
  Stage stage_;
  ScheduleProbe probe_;
  Judge judge_;
  Reader reader_;
  std::uint32_t slotCount_ = 0;
  std::string reproach_;
  // Of the schedule that was run last.
  std::string answers_;
  bool isCutShort_ = false;
};

}  // namespace ScheduleTests
