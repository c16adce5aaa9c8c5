// Thrown by a table of fixed size that has no free slot left; the table is as it was before the call.
#pragma once

#include "runtime/Dovel/Exception.h"

namespace Vault {

class TableFullException : public Dovel::RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~TableFullException() override;
  [[noreturn]] static void throwException(Dovel::String const& message);
};

}  // namespace Vault
