// What is asked of a collection when it is initialized: its size, where it stands, what its client is told.
// A plain value.
#pragma once

#include <cstdint>

#include "runtime/Dovel/String.h"

namespace Mem {

struct CollectionDescriptor {
  explicit CollectionDescriptor(std::uint32_t size) : maxSize(size) {}
  CollectionDescriptor(CollectionDescriptor const&) = default;
  CollectionDescriptor& operator=(CollectionDescriptor const&) = default;
  virtual ~CollectionDescriptor();

  // Whether a collection that was initialized with this may be initialized again with the other and stay as
  // it is. It may where the two differ only in how the collection is kept; where its client would get
  // something else than it asked for, the reason names the field and both values.
  virtual bool supportsReinitWith(CollectionDescriptor const& other, Dovel::String& reason) const;

  std::uint32_t maxSize;  // slots
  std::uint8_t type = 0;  // which kind of collection; its numbers are those of the derived descriptor
  bool localMem = false;  // in private memory: no files, no readers
  bool useHeap = false;   // local only: in memory from the heap
  bool keyNotifications = false;
  bool captureNotifyValues = false;  // changes are told with the value
  bool prevValue = false;            // and with the one before; needs captureNotifyValues
  bool asynchronous = false;
};

}  // namespace Mem
