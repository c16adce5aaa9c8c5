#include "runtime/Dovel/Exception.h"

namespace Dovel {

// The destructors stand here so that each type's description exists once, in this library, for every catch.
Exception::~Exception() = default;
RuntimeException::~RuntimeException() = default;
RangeException::~RangeException() = default;
MemoryResourceException::~MemoryResourceException() = default;
CorruptionDetectedException::~CorruptionDetectedException() = default;
InvalidInitializeException::~InvalidInitializeException() = default;
NoPermissionException::~NoPermissionException() = default;

void RuntimeException::throwException(String const& message) { throw RuntimeException(message); }
void RangeException::throwException(String const& message) { throw RangeException(message); }
void MemoryResourceException::throwException(String const& message) {
  throw MemoryResourceException(message);
}
void CorruptionDetectedException::throwException(String const& message) {
  throw CorruptionDetectedException(message);
}
void InvalidInitializeException::throwException(String const& message) {
  throw InvalidInitializeException(message);
}
void NoPermissionException::throwException(String const& message) { throw NoPermissionException(message); }

}  // namespace Dovel
