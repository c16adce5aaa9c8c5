// Reads a log file, of a process that runs or of one that is gone, and makes its messages readable.
// Functions without state; any thread, any number of processes, none of which disturbs the writer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "runtime/Dovel/Exception.h"

namespace FastLog {

// A file that can't be read or isn't a log; the message names the path and what is wrong.
class DecodeException : public Dovel::RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~DecodeException() override;
  [[noreturn]] static void throwException(Dovel::String const& message);
};

struct Message {
  std::uint64_t time;  // nanoseconds since 1970
  std::uint32_t thread;
  std::string file;
  std::uint32_t line;
  std::string text;
  bool cut;  // arguments were too long; the text shows what was kept
};

struct DecodedLog {
  std::uint64_t pid = 0;
  std::string program;
  std::uint64_t startTime = 0;            // nanoseconds since 1970
  std::vector<Message> messages;          // by time
  std::uint64_t overwrittenMessages = 0;  // gone, as the ring is full
  std::uint64_t tornMessages = 0;  // not complete: being written just now, or when the process was ended
  std::uint64_t undescribedMessages = 0;  // among `messages`, but their sites found no room: no text
};

// Throws DecodeException.
DecodedLog decode(std::string const& path);

}  // namespace FastLog
