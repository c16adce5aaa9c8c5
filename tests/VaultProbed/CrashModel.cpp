#include "tests/VaultProbed/CrashModel.h"

#include <fmt/format.h>

namespace CrashTests {

std::string Operation::text() const {
  static constexpr char const* kNames[] = {"write", "writeOnce", "remove",     "direct",
                                           "mark",  "unmark",    "scratchpad", "shrink"};
  return fmt::format("{}({},{})", kNames[kind], key, version);
}

void Model::apply(Operation const& operation) {
  auto const found = entries.find(operation.key);
  bool const exists = found != entries.end();
  switch (operation.kind) {
    case Operation::write:
    case Operation::direct:
      entries[operation.key].version = operation.version;
      break;
    case Operation::writeOnce:
      if (!exists) entries[operation.key].version = operation.version;
      break;
    case Operation::remove:
      entries.erase(operation.key);
      break;
    case Operation::mark:
    case Operation::unmark:
      if (exists) found->second.flag = operation.kind == Operation::mark;
      break;
    case Operation::scratchpad:
      scratchpad = operation.version;
      break;
    default:
      break;
  }
}

std::uint64_t Model::digest() const {
  std::uint64_t result = scratchpad;
  for (auto const& [key, entry] : entries) {
    for (std::uint64_t part : {std::uint64_t{key}, std::uint64_t{entry.version} * 2 + (entry.flag ? 1 : 0)})
      result = (result ^ part) * 0x9e3779b97f4a7c15U + (result >> 29);
  }
  return result;
}

std::string Model::text() const {
  std::string result = fmt::format("scratchpad {}", scratchpad);
  for (auto const& [key, entry] : entries)
    result += fmt::format(", {}:{}{}", key, entry.version, entry.flag ? "*" : "");
  return result;
}

}  // namespace CrashTests
