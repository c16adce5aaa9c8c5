#include "tests/VaultProbed/ScheduleJudge.h"

#include <fmt/format.h>

#include <algorithm>

namespace ScheduleTests {
namespace {

std::string textOf(Answer const& answer) {
  return answer.found ? fmt::format("key{} of version {:#x}", answer.key.number, answer.version) : "nothing";
}

std::string textOf(Contents const& contents) { return fmt::format("[{:#x}]", fmt::join(contents, " ")); }

std::string at(std::string const& what, Window window) {
  return fmt::format("{} between positions {} and {}", what, window.begin, window.end);
}

}  // namespace

std::string Judge::add(Moment moment, Timeline const& timeline) {
  auto const position = static_cast<Timeline::Position>(moments_.size());
  std::size_t const steps = timeline.stepsAt(position);
  auto const& operations = timeline.recording().operations;
  std::size_t done = 0;
  while (done < operations.size() && operations[done].end <= steps) ++done;
  bool const isAmid = done < operations.size() && operations[done].begin < steps;
  std::string reproach;
  auto const fits = [&](Contents const& contents) {
    return contents == models_[done] || (isAmid && contents == models_[done + 1]);
  };
  if (!moment.isGone && !fits(moment.contents)) {
    reproach = fmt::format("position {}: alone one finds {} after {} operations", position,
                           textOf(moment.contents), done);
  }
  if (moment.fresh && !fits(*moment.fresh)) {
    reproach = fmt::format("position {}: who comes anew finds {} after {} operations", position,
                           textOf(*moment.fresh), done);
  }
  if (!moment.isGone && moment.fresh != moment.contents) {
    reproach = fmt::format("position {}: who comes anew finds another table, or none", position);
  }
  moments_.push_back(std::move(moment));
  return reproach;
}

std::size_t Judge::placeOf(Key const& key) const {
  return static_cast<std::size_t>(std::find(keys_.begin(), keys_.end(), key) - keys_.begin());
}

template <class Is>
bool Judge::ever(Window window, Is&& is) const {
  for (Timeline::Position position = window.begin; position <= window.end; ++position)
    if (is(moments_[position])) return true;
  return false;
}

template <class Is>
bool Judge::everAttached(Window window, Is&& is) const {
  return ever(window, [&](Moment const& moment) { return !moment.isGone && is(moment); });
}

std::string Judge::lookup(std::size_t key, Answer const& answer, Window window) const {
  if (answer.found && answer.key != keys_[key]) return at("another key: " + textOf(answer), window);
  std::uint32_t const version = answer.found ? answer.version : 0;
  if (everAttached(window, [&](Moment const& moment) { return moment.contents[key] == version; })) return {};
  return at(fmt::format("key{}: {}", keys_[key].number, textOf(answer)), window);
}

std::string Judge::lookupFresh(std::size_t key, Answer const& answer, Window window) const {
  if (answer.found && answer.key != keys_[key]) return at("another key: " + textOf(answer), window);
  std::uint32_t const version = answer.found ? answer.version : 0;
  auto const is = [&](Moment const& moment) { return moment.fresh && (*moment.fresh)[key] == version; };
  if (ever(window, is)) return {};
  return at(fmt::format("who comes anew: key{}: {}", keys_[key].number, textOf(answer)), window);
}

std::string Judge::refusal(Window window) const {
  if (ever(window, [](Moment const& moment) { return !moment.fresh; })) return {};
  return at("refused, though it was there", window);
}

std::string Judge::step(std::optional<Answer> const& before, Answer const& answer, Window window) const {
  std::size_t const from = before ? placeOf(before->key) + 1 : 0;
  std::size_t const to = answer.found ? placeOf(answer.key) : keys_.size();
  if (answer.found && (to == keys_.size() || to < from)) return at("out of order: " + textOf(answer), window);
  for (std::size_t key = from; key < to; ++key) {
    if (std::string missed = lookup(key, {}, window); !missed.empty()) return "passed over " + missed;
  }
  return answer.found ? lookup(to, answer, window) : std::string();
}

std::string Judge::slot(std::uint32_t slot, Answer const& answer, Window window) const {
  if (answer.version == Answer::kTorn) return at("torn", window);
  if (everAttached(window, [&](Moment const& moment) { return moment.slots[slot] == answer; })) return {};
  return at(fmt::format("slot {}: {}", slot, textOf(answer)), window);
}

std::string Judge::told(bool isTold, Window window) const {
  if (isTold && !moments_[window.end].isGone) return at("told of an end that didn't come", window);
  if (!isTold && moments_[window.begin].isGone) return at("not told of the end", window);
  return {};
}

}  // namespace ScheduleTests
