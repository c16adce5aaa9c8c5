#include "platform/memory/CollectionDescriptor.h"

#include "platform/memory/DescriptorField.h"

namespace Mem {

CollectionDescriptor::~CollectionDescriptor() = default;

bool CollectionDescriptor::supportsReinitWith(CollectionDescriptor const& other,
                                              Dovel::String& reason) const {
  return Impl::sameField("maxSize", maxSize, other.maxSize, reason) &&
         Impl::sameField("type", unsigned{type}, unsigned{other.type}, reason) &&
         Impl::sameField("localMem", localMem, other.localMem, reason) &&
         Impl::sameField("useHeap", useHeap, other.useHeap, reason) &&
         Impl::sameField("keyNotifications", keyNotifications, other.keyNotifications, reason) &&
         Impl::sameField("captureNotifyValues", captureNotifyValues, other.captureNotifyValues, reason) &&
         Impl::sameField("prevValue", prevValue, other.prevValue, reason) &&
         Impl::sameField("asynchronous", asynchronous, other.asynchronous, reason);
}

}  // namespace Mem
