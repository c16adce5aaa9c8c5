// The handlers of a collection's client: what it wants to be told, and called for, by the map. A plain value;
// called on the thread that owns the map.
#pragma once

#include <functional>

#include "runtime/Dovel/Noop.h"

namespace Mem {

// What is left out does nothing when called. A key is the collection's own, never a slot's number.
template <class Key, class Value>
struct Notify {
  // The old value is null where there was none, or it was not captured.
  std::function<void(Value const& newValue, Value const* oldValue)> valueChanged = Dovel::noop;
  std::function<void(Key const&)> keyChanged = Dovel::noop;
  // The value is null where the key was removed.
  std::function<void(Key const&, Value const*)> entryChanged = Dovel::noop;
  std::function<void()> mountStatusChanged = Dovel::noop;
  std::function<void(bool quiesced)> quiescedChanged = Dovel::noop;
};

}  // namespace Mem
