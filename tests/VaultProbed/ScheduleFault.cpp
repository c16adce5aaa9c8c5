#include "tests/VaultProbed/ScheduleFault.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "Vault/SlotTable.h"
#include "VaultCore/BucketTable.h"
#include "VaultCore/SlotLink.h"

namespace ScheduleTests {

using Vault::SlotLink;
using Vault::SlotTable;
using VaultCore::BucketTable;

FaultyRecording::FaultyRecording(Recording& recording, std::size_t slotCells)
    : recording_(recording), slotCells_(slotCells) {
  learn();
}

void FaultyRecording::learn() {
  auto now = recording_.files;
  before_.clear();
  for (Step const& step : recording_.steps) {
    std::uint64_t before = 0;
    if (step.kind == Step::sizeSet)
      now[step.file].resize(std::max<std::size_t>(now[step.file].size(), step.value / 8));
    if (step.kind == Step::wordStored) {
      auto& words = now[step.file];
      if (words.size() <= step.at) words.resize(step.at + 1);
      before = std::exchange(words[step.at], step.value);
    }
    before_.push_back(before);
  }
}

bool FaultyRecording::isLink(Step const& step) const {
  std::size_t const header = SlotTable::kLookasideWord + slotCells_;
  return step.at >= header && (step.at - header) % slotCells_ == 0;
}

Role FaultyRecording::roleOf(std::size_t number) const {
  Step const& step = recording_.steps[number];
  if (step.kind == Step::nameSet) return Role::fileName;
  if (step.kind == Step::sizeSet) return Role::fileSize;
  if (step.value == before_[number]) return Role::other;
  if (step.name == ember) return Role::generation;
  if (step.name == buckets) {
    if (step.at == BucketTable::kNumBucketsCell)
      return step.value >> 32 == before_[number] >> 32 ? Role::resizeTold : Role::bucketCount;
    return step.at >= BucketTable::kFirstBucketCell ? Role::head : Role::other;
  }
  if (step.at == SlotTable::kNumSlotsWord) return Role::slotCount;
  if (step.at < SlotTable::kLookasideWord) return Role::other;
  if (step.at < SlotTable::kLookasideWord + slotCells_) return Role::lookaside;
  if (!isLink(step)) return Role::contents;
  SlotLink const before = SlotLink::fromWord(before_[number]);
  SlotLink const after = SlotLink::fromWord(step.value);
  if (after.inLookaside() && !before.inLookaside()) return Role::open;
  if (before.inLookaside() && !after.inLookaside()) return Role::close;
  if (after.occupied() && !before.occupied()) return Role::close;
  if (before.occupied() && !after.occupied()) return Role::vacate;
  return Role::slotLink;
}

std::size_t FaultyRecording::first(Role role, std::size_t from) const {
  for (std::size_t step = from; step < recording_.steps.size(); ++step)
    if (roleOf(step) == role) return step;
  throw std::runtime_error("no step of that role");
}

std::size_t FaultyRecording::last(Role role) const {
  for (std::size_t step = recording_.steps.size(); step-- > 0;)
    if (roleOf(step) == role) return step;
  throw std::runtime_error("no step of that role");
}

std::size_t FaultyRecording::nextOf(std::size_t step) const {
  Step const& wanted = recording_.steps.at(step);
  for (std::size_t number = step + 1; number < recording_.steps.size(); ++number) {
    Step const& other = recording_.steps[number];
    if (other.kind == Step::wordStored && other.file == wanted.file && other.at == wanted.at) return number;
  }
  throw std::runtime_error("no later store to that word");
}

std::size_t FaultyRecording::linkBefore(std::size_t step) const {
  while (step-- > 0)
    if (roleOf(step) == Role::head || roleOf(step) == Role::slotLink) return step;
  throw std::runtime_error("no link before");
}

void FaultyRecording::drop(std::size_t step) {
  recording_.steps.erase(recording_.steps.begin() + static_cast<std::ptrdiff_t>(step));
  for (Span& operation : recording_.operations) {
    if (operation.begin > step) --operation.begin;
    if (operation.end > step) --operation.end;
  }
  learn();
}

void FaultyRecording::dropAll(Role role) {
  for (std::size_t step = recording_.steps.size(); step-- > 0;)
    if (roleOf(step) == role) drop(step);
}

void FaultyRecording::moveBefore(std::size_t step, std::size_t other) {
  auto const at = recording_.steps.begin();
  auto const from = static_cast<std::ptrdiff_t>(step);
  auto const to = static_cast<std::ptrdiff_t>(other);
  if (step < other) throw std::runtime_error("it is before already");
  std::rotate(at + to, at + from, at + from + 1);
  learn();
}

void FaultyRecording::moveBehind(std::size_t step, std::size_t other) {
  moveAllBehind(step, step + 1, other);
}

// An operation lasts as long as its latest store.
void FaultyRecording::moveAllBehind(std::size_t begin, std::size_t end, std::size_t other) {
  if (end > other) throw std::runtime_error("they are behind already");
  auto const at = recording_.steps.begin();
  std::rotate(at + static_cast<std::ptrdiff_t>(begin), at + static_cast<std::ptrdiff_t>(end),
              at + static_cast<std::ptrdiff_t>(other) + 1);
  for (Span& operation : recording_.operations) {
    if (operation.end > begin && operation.end <= other) operation.end = other + 1;
    if (operation.begin > begin && operation.begin <= other) operation.begin -= end - begin;
  }
  learn();
}

void FaultyRecording::forgetLookasideHash() {
  std::size_t hash = 0;
  for (std::size_t number = 0; number < recording_.steps.size(); ++number)
    if (roleOf(number) == Role::lookaside) hash = std::max(hash, recording_.steps[number].at);
  for (Step& step : recording_.steps)
    if (step.kind == Step::wordStored && step.name == slots && step.at == hash) step.value &= 0xffffffffU;
  learn();
}

void FaultyRecording::keepSequence(std::size_t number) {
  Step const wanted = recording_.steps.at(number);
  std::uint32_t const raised =
      static_cast<std::uint32_t>(wanted.value) - static_cast<std::uint32_t>(before_.at(number));
  for (std::size_t later = number; later < recording_.steps.size(); ++later) {
    Step& step = recording_.steps[later];
    if (step.kind != Step::wordStored || step.file != wanted.file || step.at != wanted.at) continue;
    std::uint32_t const sequence = static_cast<std::uint32_t>(step.value) - raised;
    step.value = (step.value & 0xffffffff00000000U) | sequence;
  }
  learn();
}

}  // namespace ScheduleTests
