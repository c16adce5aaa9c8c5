// Standard output of a command: lines are gathered and written in large pieces, and a failure to write is an
// error of the command. One thread.
#pragma once

#include <string>
#include <string_view>

#include "runtime/Dovel/Exception.h"

namespace Host {

class OutputException : public Dovel::RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~OutputException() override;
  [[noreturn]] static void throwException(Dovel::String const& message);
};

class Output {
 public:
  Output() = default;
  Output(Output const&) = delete;
  Output& operator=(Output const&) = delete;

  // Adds a text and the end of a line. Throws OutputException where earlier lines can't be written.
  void line(std::string_view text);
  // Writes what is left. A command calls it last; without it the rest is lost.
  void finish();

 private:
  std::string pending_;
};

// The text with control characters as \n, \t or \xHH, so that it stays on one line and can't steer a
// terminal.
std::string oneLine(std::string_view text);

// Makes sure that descriptors 0 to 2 are taken, so that no file opened later is written to as standard
// output. Writing to one that was closed still fails.
void holdStandardDescriptors();

}  // namespace Host
