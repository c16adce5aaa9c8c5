// The description of one logging site: where it stands, its format, the kinds of its arguments. Made once a
// site, on its first execution; the log file holds it once, and each message only the site's id and the bare
// arguments. An object belongs to one thread; several threads may register the same site at once.
#pragma once

#include <fmt/core.h>

#include <string>
#include <string_view>
#include <type_traits>

#include "runtime/FastLog/Layout.h"
#include "runtime/FastLog/TraceFile.h"

namespace FastLog {

class MsgDesc {
 public:
  // msgId is the site's static number, 0 until it is registered.
  MsgDesc(TraceFile* traceFile, int* msgId, char const* file, int line);
  MsgDesc(MsgDesc const&) = delete;
  MsgDesc& operator=(MsgDesc const&) = delete;
  ~MsgDesc();

  // Registers the site with what was put so far and sets its id.
  void finish();

 private:
  friend class MsgFormatString;
  friend void putArgumentKind(MsgDesc& desc, ArgumentKind kind);

  int* const msgId_;
  char const* const file_;
  int const line_;
  std::string format_;
  std::string kinds_;
};

class MsgFormatString {
 public:
  // Sets the site's format, in brace syntax.
  static void put(MsgDesc& desc, fmt::string_view format);
};

void putArgumentKind(MsgDesc& desc, ArgumentKind kind);

template <class Argument>
constexpr ArgumentKind argumentKind() {
  using Value = std::decay_t<Argument>;
  if constexpr (std::is_same_v<Value, bool>) {
    return ArgumentKind::truth;
  } else if constexpr (std::is_same_v<Value, char>) {
    return ArgumentKind::character;
  } else if constexpr (std::is_integral_v<Value>) {
    return std::is_signed_v<Value> ? ArgumentKind::signedNumber : ArgumentKind::unsignedNumber;
  } else if constexpr (std::is_floating_point_v<Value>) {
    return ArgumentKind::floating;
  } else if constexpr (std::is_same_v<Value, void*> || std::is_same_v<Value, void const*>) {
    return ArgumentKind::address;
  } else {
    static_assert(std::is_convertible_v<Argument const&, std::string_view>,
                  "FastLog takes numbers, strings and void pointers; format anything else to a string first");
    return ArgumentKind::string;
  }
}

// Puts the kinds of the site's arguments, whose values don't matter.
template <class... Args>
void msgDesc(MsgDesc& desc, Args const&...) {
  (putArgumentKind(desc, argumentKind<Args>()), ...);
}

}  // namespace FastLog
