// Judges the files of a store at rest: whether they hold one whole table, as its next writer requires it.
// Independent of the code of the writer; works on any bytes. Functions without state; any thread.
#pragma once

#include <cstdint>
#include <vector>

#include "Vault/StoreImage.h"
#include "Vault/StoredType.h"
#include "platform/memory/EmberId.h"

namespace Vault {

struct StoreReport {
  // What is wrong, one sentence each; the first is the reason to refuse the store. Empty where all is well.
  // After a first break in the list of records, or in the free list, nothing further is told of that list.
  std::vector<Dovel::String> problems;

  bool sound() const { return problems.empty(); }
};

// `generation` is that of the generation file. Without a type the rules that need the keys are left out.
StoreReport checkStore(SlotsImage const& slots, BucketsImage const& buckets, SharedMem::EmberId generation,
                       StoredType const* type);

}  // namespace Vault
