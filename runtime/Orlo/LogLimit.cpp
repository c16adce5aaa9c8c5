#include "runtime/Orlo/LogLimit.h"

#include <algorithm>
#include <utility>

namespace Orlo {
namespace {

constexpr Dovel::Duration kLongestWindow = std::chrono::hours(24);

Dovel::Duration grown(Dovel::Duration length, double growth) {
  auto const longest = std::max(length, kLongestWindow);
  double const result = static_cast<double>(length.count()) * growth;
  // Compared as a double: the product may be past what a Duration holds.
  if (result >= static_cast<double>(longest.count())) return longest;
  return Dovel::Duration(static_cast<Dovel::Duration::rep>(result));
}

}  // namespace

LogLimit::LogLimit(Dovel::Duration interval, double growth, unsigned perWindow, unsigned most)
    : interval_(std::max(interval, Dovel::Duration::zero())),
      growth_(growth > 1.0 ? growth : 1.0),
      perWindow_(std::max(perWindow, 1U)),
      most_(most),
      length_(interval_) {}

LogLimit::Verdict LogLimit::admit(Time now) {
  if (most_ != 0 && passed_ >= most_) return {};
  if (interval_ == Dovel::Duration::zero()) return pass();
  if (now >= end_) openWindow(now);
  if (passedInWindow_ < perWindow_) {
    ++passedInWindow_;
    return pass();
  }
  ++suppressed_;
  return {};
}

LogLimit::Verdict LogLimit::pass() {
  // Only the first message of a window finds any, as a suppressed one is followed by no other before the next
  // window.
  ++passed_;
  return {true, most_ != 0 && passed_ == most_, std::exchange(suppressed_, 0)};
}

void LogLimit::openWindow(Time now) {
  length_ = suppressed_ > 0 ? grown(length_, growth_) : interval_;
  end_ = length_ > Time::max() - now ? Time::max() : now + length_;
  passedInWindow_ = 0;
}

}  // namespace Orlo
