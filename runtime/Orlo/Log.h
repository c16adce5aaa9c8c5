// Messages to the system log, for the people who run a switch. A message goes to syslog(3), and as a level 0
// trace to the channel "Log", so that it is seen where no log daemon runs. Formats are in printf syntax. Any
// thread; logging never throws and keeps errno.
#pragma once

#include <fmt/core.h>

#include <source_location>
#include <string>
#include <string_view>

#include "runtime/Dovel/Duration.h"
#include "runtime/Orlo/LogLimit.h"

namespace Orlo {

// What is known of a message before it is ever logged.
struct LogDescriptor {
  char const* name;         // stands before every message
  char const* format;       // of the message, in printf syntax
  char const* explanation;  // what it means to a person
  char const* action;       // what a person should do; "\x01": nothing in particular
  int severity;             // of syslog, LOG_EMERG to LOG_DEBUG
  unsigned long reserved;   // 0
};

class LogHandle {
 public:
  // The descriptor must outlive the handle. The numbers limit this handle's messages, see LogLimit; with an
  // interval of zero and 0 for `most` there is no limit. `place` is shown in the trace of each message.
  LogHandle(LogDescriptor const& descriptor, Dovel::Duration interval, double growth, unsigned perWindow,
            unsigned most, std::source_location place = std::source_location::current());
  LogHandle(LogHandle const&) = delete;
  LogHandle& operator=(LogHandle const&) = delete;
  // Tells how many messages were held back since the last one.
  ~LogHandle();

  // Logs the descriptor's format filled with the arguments: numbers, texts, and for %s whatever fmt can
  // format. The arguments are checked against the format when it is logged; a mismatch is told in the
  // message. Messages held back by the limit are counted, and "N similar messages suppressed" is logged
  // before the first that passes again.
  template <class... Args>
  void log(Args const&... args) {
    vlog(fmt::make_format_args(args...));
  }

  LogDescriptor const& descriptor() const { return descriptor_; }

 private:
  void vlog(fmt::format_args args) noexcept;
  void emit(std::string_view text) const;

  LogDescriptor const& descriptor_;
  std::source_location const place_;
  LogLimit limit_;  // under the mutex of all logs
};

// Where messages go besides the trace; the default is syslog(3).
using LogBackEnd = void (*)(int severity, char const* text);

// Replaces the back end of this process and returns the former one; null stands for syslog(3).
LogBackEnd logBackEndIs(LogBackEnd backEnd);

namespace Impl {

// Hands a text to the back end as it is. May not throw, as the back end may not.
void logText(int severity, char const* text) noexcept;

// Fills a format of printf syntax; on a mismatch, the bare format and what is wrong.
std::string printfText(char const* format, fmt::format_args args);

}  // namespace Impl
}  // namespace Orlo
