#include "tests/VaultProbed/Bases.h"

namespace CrashTests {

std::vector<Operation> operationsAt(std::uint32_t step) {
  std::vector<Operation> all;
  for (std::uint32_t key = 0; key < 4; ++key)
    for (auto kind : {Operation::write, Operation::writeOnce, Operation::remove, Operation::direct,
                      Operation::mark, Operation::unmark})
      all.push_back({kind, key, step});
  all.push_back({Operation::shrink});
  all.push_back({Operation::scratchpad, 0, step});
  return all;
}

std::vector<Operation> highUp() {
  std::vector<Operation> all;
  for (std::uint32_t filler = 4; filler < 12; ++filler) all.push_back({Operation::write, filler});
  for (std::uint32_t key = 0; key < 4; ++key) all.push_back({Operation::write, key});
  all.push_back({Operation::mark, 1});
  for (std::uint32_t filler = 4; filler < 12; ++filler) all.push_back({Operation::remove, filler});
  return all;
}

std::vector<Operation> full() { return {{Operation::write, 4}, {Operation::write, 0}, {Operation::mark, 0}}; }

}  // namespace CrashTests
