// One message on its way into a log file: its arguments are gathered on the caller's stack and go to the ring
// at once when it ends. A message takes at most 880 bytes of arguments; what goes beyond is cut, and the
// message is marked. An object belongs to one thread. Nothing here allocates, locks or makes a system call.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "runtime/FastLog/Layout.h"
#include "runtime/FastLog/TraceFile.h"

namespace FastLog {

class RingBuf {
 public:
  RingBuf() {}  // NOLINT(modernize-use-equals-default): the words stay unset until they are put

  // Begins a message; its time is now. msgId must hold under TraceFile::msgIdInitialized.
  void startMsg(TraceFile* traceFile, int msgId);
  void putNumber(std::uint64_t number);
  void putText(std::string_view text);
  void endMsg();

  // The calling thread has another id than before.
  static void forgetThreadId();

 private:
  char* arguments() { return static_cast<char*>(static_cast<void*>(words_ + kLeadWords)); }

  TraceFile* traceFile_;
  std::uint32_t msgId_;
  std::uint32_t used_;
  bool cut_;
  std::uint64_t words_[kMaxMessageWords];
};

inline void put(RingBuf& ringBuf, std::string_view text) { ringBuf.putText(text); }

inline void put(RingBuf& ringBuf, char const* text) { ringBuf.putText(text != nullptr ? text : "(null)"); }

inline void put(RingBuf& ringBuf, void const* address) {
  ringBuf.putNumber(static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(address)));
}

template <class Number>
  requires std::is_arithmetic_v<Number>
void put(RingBuf& ringBuf, Number number) {
  if constexpr (std::is_floating_point_v<Number>) {
    auto const wide = static_cast<double>(number);
    std::uint64_t bits;
    std::memcpy(&bits, &wide, sizeof bits);
    ringBuf.putNumber(bits);
  } else {
    ringBuf.putNumber(static_cast<std::uint64_t>(number));
  }
}

}  // namespace FastLog
