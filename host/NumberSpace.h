// Numbers of a chip that names have been given, each its own. A name keeps its number for ever. One thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/OperationInput.h"

namespace Host {

class NumberSpace {
 public:
  // `what` says in errors whose numbers these are: "interfaces: inLif".
  NumberSpace(std::string what, NumberRange legal);

  // A number that was given earlier. Throws InputError where another name has it, or it is not legal.
  void add(std::string const& name, std::uint64_t number);
  // The number of the name; a new name gets the lowest that is free. Throws InputError where none is.
  std::uint64_t number(std::string const& name);

  std::map<std::string, std::uint64_t> const& numbers() const { return numbers_; }

 private:
  std::string const& nameOf(std::uint64_t number) const;

  std::string const what_;
  NumberRange const legal_;
  std::map<std::string, std::uint64_t> numbers_;
  std::vector<bool> taken_;
  std::uint64_t next_;
};

}  // namespace Host
