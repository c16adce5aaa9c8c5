#include "host/NumberSpace.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/Output.h"

namespace Host {

NumberSpace::NumberSpace(std::string what, NumberRange legal)
    : what_(std::move(what)), legal_(legal), taken_(legal.max + 1), next_(legal.min) {}

void NumberSpace::add(std::string const& name, std::uint64_t number) {
  if (number < legal_.min || number > legal_.max) {
    throw InputError(
        fmt::format("{} of {}: {} is not {} to {}", what_, oneLine(name), number, legal_.min, legal_.max));
  }
  if (taken_[number]) {
    throw InputError(fmt::format("{} of {}: {} is that of {} already", what_, oneLine(name), number,
                                 oneLine(nameOf(number))));
  }
  taken_[number] = true;
  numbers_[name] = number;
}

std::uint64_t NumberSpace::number(std::string const& name) {
  auto const found = numbers_.find(name);
  if (found != numbers_.end()) return found->second;
  while (next_ <= legal_.max && taken_[next_]) ++next_;
  if (next_ > legal_.max) {
    throw InputError(fmt::format("{} of {}: none is left, as all of {} to {} are taken", what_, oneLine(name),
                                 legal_.min, legal_.max));
  }
  add(name, next_);
  return numbers_[name];
}

std::string const& NumberSpace::nameOf(std::uint64_t number) const {
  return std::ranges::find(numbers_, number, [](auto const& one) { return one.second; })->first;
}

}  // namespace Host
