// What a writer counts of its buckets. Plain values of the writer's thread.
#pragma once

namespace VaultCore::Bucket {

// In seconds.
struct WriterCounters {
  double maxGrowTime = 0;
  double maxShrinkTime = 0;
  double lastResizeTime = 0;
};

}  // namespace VaultCore::Bucket
