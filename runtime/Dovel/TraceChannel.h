// Trace channels: each name has one cell with its 16-bit level mask, shared by every handle of that name.
//
// Any thread may do anything here, and a child of fork() too. Invariants:
//  1. A channel, once made, is never moved or freed, so that handles may read it without a lock, also while
//     the process exits.
//  2. A mask is read relaxed: a change of levels may be seen late, and orders nothing.
//  3. Channels are made and rules changed under one mutex, so a new channel follows every rule set before.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Dovel/TraceLevels.h"

namespace Dovel {

namespace Trace {

using MaskCell = std::atomic<std::uint16_t>;

// Sets the levels of every channel that matches the glob: those that exist and those made later. Where
// several rules match a channel, the one set last holds; those of HWTABLES_TRACE come first.
void levelsIs(std::string_view glob, std::uint16_t mask);

// The same for a list in the language of HWTABLES_TRACE. Returns what is wrong with a malformed list, of
// which nothing is then applied; empty on success.
std::string rulesIs(std::string_view list);

struct ChannelStatus {
  std::string name;
  std::uint16_t mask;
  bool perObject;
};

// Every channel made so far, ordered by name.
std::vector<ChannelStatus> channels();

}  // namespace Trace

namespace Impl {

struct TraceChannel {
  TraceChannel(std::string channelName, std::uint16_t levels) : mask(levels), name(std::move(channelName)) {}

  Trace::MaskCell mask;
  std::string const name;
  std::atomic<bool> perObject = false;
};

TraceChannel& traceChannel(std::string_view name, bool perObject);

// What the two kinds of sinks have in common: one pointer to the channel.
class ChannelHandle {
 public:
  std::string const& name() const { return channel_->name; }
  // Bit n set: level n is on. Valid for the life of the process.
  Trace::MaskCell const* mask() const { return &channel_->mask; }
  [[gnu::always_inline]] bool isOn(unsigned short level) const {
    return level <= Trace::kHighestLevel && (mask()->load(std::memory_order_relaxed) >> level & 1) != 0;
  }

 protected:
  ChannelHandle(std::string_view name, bool perObject) : channel_(&traceChannel(name, perObject)) {}

 private:
  TraceChannel const* channel_;
};

}  // namespace Impl
}  // namespace Dovel
