// The tables from which the crash tests begin.
#pragma once

#include <vector>

#include "tests/VaultProbed/CrashJudge.h"

namespace CrashTests {

// A table at rest, to begin from as often as needed.
struct Base {
  FileImage files;
  Model model;
};

// A table on which these were done.
template <class Ops>
Base baseOf(std::string const& directory, std::vector<Operation> const& operations) {
  FileImage().writeTo(directory);
  Base base;
  {
    auto const writer = attachedTo<Ops>(directory);
    for (Operation const& operation : operations) {
      applyTo(*writer, operation);
      base.model.apply(operation);
    }
  }
  base.files.load(directory);
  return base;
}

// All that can be done with the four keys, with values that tell at which step they were written.
std::vector<Operation> operationsAt(std::uint32_t step);

// The four keys in slots above the eighth, all others gone: one removal moves three of them, and gives back
// half of the slots and half of the buckets.
std::vector<Operation> highUp();

// As many records as slots and buckets: one insertion makes more of both.
std::vector<Operation> full();

}  // namespace CrashTests
