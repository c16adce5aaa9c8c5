// What the store asks of the processor. Any thread.
#pragma once

namespace Mem {

struct Atomics {
  // Whether aligned 64-bit words are read and written whole, without a lock that other processes wouldn't
  // see, and stand in files with the low byte first.
  static bool checkCpuSupport();
};

}  // namespace Mem
