// Which two processors a benchmark of two processes runs on. scripts/bench gives the whole program one, which
// is where the measured process stays; the other process is moved to another one, whatever it has inherited.
#pragma once

#include <optional>

namespace StoreBench {

struct Processors {
  int measured;
  int other;

  // Nothing where the machine lets us have only one.
  static std::optional<Processors> two();
};

// From here on this thread runs there. False where it may not.
bool pinTo(int processor);

}  // namespace StoreBench
