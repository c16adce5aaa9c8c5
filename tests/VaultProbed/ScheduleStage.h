// Real files of a table that can be put to any position of a timeline, back and forth: words by plain stores,
// names by links. Readers map these files. One thread.
#pragma once

#include <string>
#include <vector>

#include "tests/VaultProbed/ScheduleTimeline.h"

namespace ScheduleTests {

class Stage {
 public:
  // Works below the directory.
  Stage(std::string const& directory, Timeline const& timeline);
  Stage(Stage const&) = delete;
  Stage& operator=(Stage const&) = delete;
  ~Stage();

  // Where the table is.
  std::string const& directory() const { return table_; }
  Timeline const& timeline() const { return timeline_; }
  Timeline::Position last() const { return timeline_.last(); }
  Timeline::Position position() const { return position_; }
  void seek(Timeline::Position position);
  // The file that a name leads to now.
  unsigned fileOf(unsigned name) const { return names_[name]; }

 private:
  struct Mapped {
    int descriptor = -1;
    std::uint64_t* words = nullptr;
    std::size_t size = 0;
  };

  std::string kept(unsigned file) const { return kept_ + "/" + std::to_string(file); }
  std::string named(unsigned name) const { return table_ + "/" + kNames[name]; }
  void make(unsigned file, std::vector<std::uint64_t> const& words, std::size_t room);
  void lead(unsigned name, unsigned file);
  void wordIs(Step const& step, std::uint64_t value);
  void sizeIs(Step const& step, std::uint64_t size);

  Timeline const& timeline_;
  std::string const table_;
  std::string const kept_;
  std::vector<Mapped> files_;
  std::array<unsigned, nameCount> names_;
  Timeline::Position position_ = 0;
};

}  // namespace ScheduleTests
