// The hash of Boost's maps for a key: its number, as boost::hash of an integer would have it. Any thread.
#pragma once

#include <cstddef>

#include "bench/store/Workload.h"

namespace StoreBench {

struct BoostHash {
  std::size_t operator()(Key const& key) const {
    return std::size_t{key.mplsLabel().value()} << 1 | key.mplsBos().value();
  }
};

}  // namespace StoreBench
