// What a caller may attach to a write to learn how it went. It travels through the command path as a Ptr,
// which may be null. The last reference to a command may go in any thread, and errorCodeIs() is called from
// there.
#pragma once

#include "runtime/Dovel/Node.h"
#include "runtime/Dovel/String.h"

namespace Asic {

class LogEntryWrapperBase : public Dovel::Node {
 public:
  // What the write is about, for traces.
  virtual Dovel::String text() const = 0;
  // The chip refused the write.
  virtual void errorCodeIs(unsigned int errorCode) = 0;
};

}  // namespace Asic
