// What a writer does to the files of a table, step by step. A writer never looks at what readers do, and
// readers change nothing, so its steps are the same in every schedule: they are taken down once and then
// made, and unmade, around the steps of a reader. Plain values of one thread.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/VaultProbed/CrashProbe.h"

namespace ScheduleTests {

// The files that readers look at, by name.
inline constexpr std::array<char const*, 3> kNames{"slots", "buckets", "ember"};
enum Name : unsigned { slots, buckets, ember, nameCount };

// The place of a path's last part in kNames; nameCount for another.
unsigned nameOf(std::string_view path);

// A file by number, which it keeps when its name goes to another.
inline constexpr unsigned kNoFile = 0xffffffff;

struct Step {
  enum Kind { wordStored, sizeSet, nameSet };

  Kind kind = wordStored;
  unsigned name = 0;
  unsigned file = 0;        // of a name: the file that it leads to from here on
  std::size_t at = 0;       // the index of a word
  std::uint64_t value = 0;  // the word, or the size in bytes
  bool together = false;    // with the next one: one system call made both
  std::uint64_t before = 0;
  unsigned fileBefore = kNoFile;
};

struct Span {
  std::size_t begin = 0;
  std::size_t end = 0;
};

// Steps as they were taken down; tests may change them before they make a timeline of them.
struct Recording {
  std::vector<std::vector<std::uint64_t>> files;  // as they were at first; those made later are empty
  std::array<unsigned, nameCount> names{};        // the files that the names led to at first
  std::vector<Step> steps;
  std::vector<Span> operations;
};

class Recorder final : public Mem::Probe {
 public:
  explicit Recorder(std::string const& directory);

  void store(std::uint64_t& cell, std::uint64_t value) override;
  void afterCall(char const* call, char const* file) override;

  template <class Call>
  void operation(Call&& call) {
    std::size_t const begin = recording_.steps.size();
    {
      CrashTests::ProbeScope const watching(this);
      call();
    }
    recording_.operations.push_back({begin, recording_.steps.size()});
  }
  // Throws where something was changed past the probe.
  Recording finish();

 private:
  void takeDown(unsigned name);

  std::string const directory_;
  CrashTests::MappedFiles mapped_;
  Recording recording_;
  std::vector<std::vector<std::uint64_t>> now_;
  std::array<unsigned, nameCount> names_{};
};

// A recording as a reader could see it: positions are the moments between visible steps, from 0, where
// nothing was done, up to last(), where all is.
class Timeline {
 public:
  using Position = unsigned;

  explicit Timeline(Recording recording);

  Recording const& recording() const { return recording_; }
  Position last() const { return static_cast<Position>(ends_.size() - 1); }
  // So many steps are made at the position.
  std::size_t stepsAt(Position position) const { return ends_[position]; }
  // The first position at which a step is made.
  Position positionOf(std::size_t step) const;

  // The positions at which a word, or what a look at a name yields, is another than just before.
  std::vector<Position> const& changesOf(unsigned file, std::size_t word) const {
    return word < words_[file].size() ? words_[file][word] : never_;
  }
  std::vector<Position> const& changesOf(unsigned name) const { return looks_[name]; }
  std::size_t sizeOf(unsigned file) const { return largest_[file]; }

  // A word of a file at a position.
  std::uint64_t wordAt(Position position, unsigned file, std::size_t word) const;

 private:
  void takeBefore();
  void mark();

  Recording recording_;
  std::vector<std::size_t> ends_{0};
  std::vector<std::vector<std::vector<Position>>> words_;
  std::array<std::vector<Position>, nameCount> looks_;
  std::vector<std::size_t> largest_;
  std::vector<Position> const never_;
};

}  // namespace ScheduleTests
