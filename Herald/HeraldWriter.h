// How a store tells that a slot has changed. The writer posts inside its critical section, after the
// publication of what it tells; on a move the new slot goes before the old one. The writer's thread alone.
#pragma once

#include <cstdint>
#include <limits>

#include "platform/memory/EmberId.h"
#include "runtime/Dovel/String.h"

namespace Nudge {

// The number of a change; rises with each.
using Sequence = std::uint64_t;
inline constexpr Sequence kNoSequence = std::numeric_limits<Sequence>::max();

}  // namespace Nudge

namespace Herald {

// The unit of notification.
struct BasicSlot {
  std::uint32_t slot;
};

// Which sequence is asked for.
enum class Priority : std::uint8_t { normal, urgent };

// Whether a notification may be dropped when a newer one of the same slot stands in the ring.
enum class PruneMode : std::uint8_t { prune, keep };

namespace Writer {

struct Counters {
  std::uint64_t posts = 0;
};

}  // namespace Writer

class HeraldWriter {
 public:
  HeraldWriter() = default;
  HeraldWriter(HeraldWriter const&) = delete;
  HeraldWriter& operator=(HeraldWriter const&) = delete;
  virtual ~HeraldWriter() = default;

  // Makes or adopts the state that readers see: 1 for new, 2 for adopted, 8 for one that can't be used. Never
  // 0 or 4.
  virtual unsigned attach(SharedMem::EmberId emberId) = 0;
  virtual void onDetach() = 0;
  // Deletes the files of its own.
  virtual void removeFiles() = 0;

  // Doesn't throw, block, allocate or call the store.
  virtual void post(BasicSlot slot) noexcept = 0;

  virtual Nudge::Sequence sequence(Priority priority) const = 0;
  virtual Dovel::String headersToString() const = 0;
};

}  // namespace Herald
