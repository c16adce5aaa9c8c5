// The slab's chunks and the batches of free cells that no thread holds. Any thread; one lock.
#pragma once

#include <cstdint>

#include "runtime/KilnSlab/KilnSlab.h"

namespace KilnSlab::Impl {

// Free cells of one size, linked by their first word.
struct Batch {
  FreeCell* first = nullptr;
  std::uint32_t count = 0;
};

class CentralStock {
 public:
  // A batch of at least one cell; none when the reserved range is used up.
  static Batch take(std::uint32_t sizeClass);
  static void give(std::uint32_t sizeClass, Batch batch);
  // True once a take found nothing.
  static bool exhausted();
};

}  // namespace KilnSlab::Impl
