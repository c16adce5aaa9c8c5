// How the clients of a table reach its writer. A plain value.
#pragma once

#include "runtime/Dovel/String.h"

namespace SharedMem {

struct WireletInfo {
 public:
  // What the address of a local socket holds, without the byte that ends it.
  static constexpr std::size_t kLongestName = 107;

  // The socket on which the writer accepts them; empty while there is no writer.
  Dovel::String socketName() const { return socketName_; }
  // Throws Dovel::RangeException for a name that no socket can have.
  void socketNameIs(Dovel::String const& name);

  Dovel::String toString() const;

  friend bool operator==(WireletInfo const&, WireletInfo const&) = default;

 private:
  Dovel::String socketName_;
};

}  // namespace SharedMem
