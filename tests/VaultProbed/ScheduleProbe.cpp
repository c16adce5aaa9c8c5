#include "tests/VaultProbed/ScheduleProbe.h"

#include <algorithm>

#include "Vault/SlotTable.h"
#include "VaultCore/BucketTable.h"

namespace ScheduleTests {
namespace {

std::uint64_t scrambled(std::uint64_t word) {
  word = (word ^ word >> 30) * 0xbf58476d1ce4e5b9U;
  word = (word ^ word >> 27) * 0x94d049bb133111ebU;
  return word ^ word >> 31;
}

}  // namespace

unsigned Choices::choose(unsigned count) {
  // The writer rests at most points of a random run: it has the more to do at the others.
  if (random_) return generator_() % 4 != 0 ? 0 : static_cast<unsigned>(generator_() % count);
  if (at_ == choices_.size()) choices_.push_back({0, count});
  return choices_[at_++].taken;
}

bool Choices::next() {
  at_ = 0;
  if (random_) return true;
  while (!choices_.empty() && choices_.back().taken + 1 == choices_.back().count) choices_.pop_back();
  if (choices_.empty()) return false;
  ++choices_.back().taken;
  return true;
}

void Choices::randomIs(std::uint64_t seed) {
  random_ = true;
  generator_.seed(seed);
}

void ScheduleProbe::reset() {
  misdeed_.clear();
  links_.clear();
  sinceWriter_ = 0;
  calls_ = 0;
  seen_ = 0;
}

void ScheduleProbe::restAt(Timeline::Position position) {
  reset();
  rests_ = true;
  stage_.seek(position);
  position_ = callBegan_ = position;
}

void ScheduleProbe::start() {
  restAt(last_ == 0 ? 0 : last_ - choices_.choose(last_ + 1));
  rests_ = false;
  left_ = preemptions_ - (isBounded() && position_ > 0 && position_ < last_ ? 1 : 0);
}

void ScheduleProbe::call() {
  settle();
  links_.clear();
  callBegan_ = position_;
  ++calls_;
}

// After a load that was served with what stood there before.
void ScheduleProbe::settle() {
  if (stage_.position() != position_) stage_.seek(position_);
}

void ScheduleProbe::load(std::uint64_t const& cell) {
  settle();
  auto const address = reinterpret_cast<std::uintptr_t>(&cell);
  for (unsigned name = 0; name < nameCount; ++name) {
    Mapping const& mapping = (*mappings_)[name];
    if (address < mapping.begin || address >= mapping.end) continue;
    Place const place{name, mapping.file, (address - mapping.begin) / 8};
    point(stage_.timeline().changesOf(place.file, place.word));
    hoist(place);
    return;
  }
}

void ScheduleProbe::store(std::uint64_t& /*cell*/, std::uint64_t /*value*/) { misdeed_ = "it stored"; }

void ScheduleProbe::look(char const* file) {
  settle();
  unsigned const name = nameOf(file);
  if (name != nameCount) point(stage_.timeline().changesOf(name));
}

void ScheduleProbe::mapped(char const* file, void const* base, std::size_t size) {
  unsigned const name = nameOf(file);
  if (name == nameCount) return;
  auto const begin = reinterpret_cast<std::uintptr_t>(base);
  Mapping& mapping = (*mappings_)[name];
  // One that stays where it is stays one of its file, whatever the name leads to by now.
  mapping = {begin, begin + size, mapping.begin == begin ? mapping.file : stage_.fileOf(name)};
}

void ScheduleProbe::beforeCall(char const* call, char const* file) {
  misdeed_ = std::string("it did ") + call + " to " + file;
}

void ScheduleProbe::point(std::vector<Timeline::Position> const& changes) {
  if (++sinceWriter_ > kPatience) throw Endless();
  bool const isPlain = search_ == Search::plain && position_ < last_;
  if (rests_ || (changes.empty() && !isPlain)) return;
  if (isPlain || changes.back() > position_) {
    stopIfKnown();
    choose(changes);
  }
  see(changes);
}

void ScheduleProbe::choose(std::vector<Timeline::Position> const& changes) {
  if (!isBounded()) {
    auto const later = std::upper_bound(changes.begin(), changes.end(), position_);
    auto const choice = choices_.choose(static_cast<unsigned>(changes.end() - later) + 1);
    if (choice != 0) goOn(later[choice - 1]);
    return;
  }
  // The writer that doesn't get to its end is itself preempted.
  if (left_ == 0) return;
  unsigned const choice = choices_.choose(left_ == 1 ? 2 : last_ - position_ + 1);
  if (choice == 0) return;
  Timeline::Position const to = left_ == 1 ? last_ : position_ + choice;
  left_ -= to == last_ ? 1 : 2;
  goOn(to);
}

void ScheduleProbe::see(std::vector<Timeline::Position> const& changes) {
  auto const made = std::upper_bound(changes.begin(), changes.end(), position_) - changes.begin();
  seen_ = scrambled(seen_ + static_cast<std::uint64_t>(made) + 1);
}

// When the first call began is told by the order of the schedules; for later ones it matters.
void ScheduleProbe::stopIfKnown() {
  bool const mayStop = search_ == Search::every || search_ == Search::preempted;
  if (!mayStop || hoist_ != Hoist::none || !choices_.isNew()) return;
  std::uint64_t const began = calls_ > 1 ? callBegan_ + 1 : 0;
  std::uint64_t const state = scrambled(
      seen_ ^ scrambled(position_ | began << 20 | std::uint64_t{left_} << 40 | std::uint64_t{calls_} << 44));
  if (!known_.insert(state).second) throw KnownFromHere();
}

void ScheduleProbe::goOn(Timeline::Position position) {
  position_ = position;
  stage_.seek(position);
  sinceWriter_ = 0;
}

bool ScheduleProbe::isLink(Place place) const {
  std::size_t const header = Vault::SlotTable::kLookasideWord + slotCells_;
  if (place.name == buckets) return place.word >= VaultCore::BucketTable::kFirstBucketCell;
  return place.name == slots && place.word >= header && (place.word - header) % slotCells_ == 0;
}

void ScheduleProbe::hoist(Place place) {
  if (hoist_ == Hoist::none || rests_) return;
  bool const isCount =
      (hoist_ == Hoist::slotCount && place.name == slots && place.word == Vault::SlotTable::kNumSlotsWord) ||
      (hoist_ == Hoist::bucketCount && place.name == buckets &&
       place.word == VaultCore::BucketTable::kNumBucketsCell) ||
      (hoist_ == Hoist::generation && place.name == ember);
  if (isCount) stage_.seek(callBegan_);
  if (!isLink(place)) return;
  auto const before =
      std::find_if(links_.rbegin(), links_.rend(), [&](Seen const& seen) { return seen.place.isOf(place); });
  bool const isOwn = before == links_.rbegin();
  if (before == links_.rend()) {
    links_.push_back({place, position_});
  } else if (hoist_ == (isOwn ? Hoist::ownSequence : Hoist::predecessorSequence)) {
    stage_.seek(before->position);
  } else {
    before->position = position_;
  }
}

}  // namespace ScheduleTests
