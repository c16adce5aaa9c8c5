// What is known of the versions that a record has had, shared by all processes that write and read it, and
// whether the answers that readers get can have been true.
//
// Versions of a key rise. An odd one is a record, an even one its absence. The writer begins a version,
// changes the table, and acknowledges it; versions may be left out, and a writer that dies may leave one
// begun that never comes. A reader's answer is legal where it was true at one moment between the beginning
// and the end of its call, and no older than what any reader was told before that.
//
// One writer; any number of readers in any process.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Torture {

using Version = std::uint32_t;

constexpr bool isPresent(Version version) { return (version & 1) != 0; }
// The first version after another one that is a record, or none.
constexpr Version following(Version version, bool present) {
  return version + (isPresent(version) == present ? 2 : 1);
}

// Of one key.
class alignas(64) KeyHistory {
 public:
  // The writer's side.
  Version begun() const { return begun_; }
  Version acknowledged() const { return acknowledged_; }
  Version begin(bool present);
  void acknowledge() { acknowledged_ = begun_.load(); }
  // Before the table is removed, or attached, at which it may be wiped.
  void beginWipe();
  // After it was attached: what is there of the key, 0 for nothing. Returns what is wrong with that, if
  // anything is. `mayBeLost`: the table was wiped or removed.
  std::string recovered(Version found, bool mayBeLost);

  // The readers'.
  // The oldest version that an answer which is asked for from now on may tell.
  Version oldest() const { return std::max(acknowledged_.load(), told_.load()); }
  // The last version begun that is no record.
  Version absence() const { return std::max(removal_.load(), wipe_.load()); }
  // A reader was told of the version.
  void told(Version version);

 private:
  std::atomic<Version> begun_{0};
  std::atomic<Version> acknowledged_{0};
  std::atomic<Version> removal_{0};
  std::atomic<Version> wipe_{0};
  std::atomic<Version> told_{0};
};

// One question about one key, from before it is asked.
class Question {
 public:
  explicit Question(KeyHistory& history)
      : history_(history), absence_(history.absence()), oldest_(history.oldest()) {}

  // What is wrong with the answer; empty where nothing is.
  std::string found(Version version);
  std::string missed();
  // What stands in a slot, which is filled before anything leads to it and vacated after.
  std::string foundInSlot(Version version);

 private:
  KeyHistory& history_;
  Version const absence_;
  Version const oldest_;
  Version const acknowledged_ = history_.acknowledged();
};

// One iteration over all keys, from before its first step.
class Walk {
 public:
  // Where a record stands in the order of the table.
  using Place = std::pair<std::uint32_t, std::uint32_t>;

  explicit Walk(std::span<KeyHistory> keys);

  std::string returned(std::uint32_t key, Place place, Version version);
  // The table says that there are no more.
  std::string ended();

 private:
  std::span<KeyHistory> const keys_;
  std::vector<Version> oldest_;
  std::vector<bool> returned_;
  bool any_ = false;
  Place last_{};
};

}  // namespace Torture
