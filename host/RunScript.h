// A file of operations, one a line. One thread.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "host/StopSignals.h"

namespace Host {

class RunScript {
 public:
  // "-" means standard input. Throws Dovel::RuntimeException where the file can't be read. `idle` is called
  // before the reader waits for more.
  RunScript(std::string const& path, StopSignals const& signals, std::function<void()> idle);
  RunScript(RunScript const&) = delete;
  RunScript& operator=(RunScript const&) = delete;
  ~RunScript();

  // The next line that isn't blank. False at the end, and when a signal asks to stop. Throws as the
  // constructor.
  bool next(std::string& line);

  // Of the latest line: "routes.jsonl:12".
  std::string where() const;
  // What has been read of a file, 0 to 1; 0 where its size isn't known.
  double progress() const;

 private:
  bool fill();

  std::string const name_;
  int const fd_;
  off_t size_ = 0;
  StopSignals const& signals_;
  std::function<void()> const idle_;
  std::string buffer_;
  std::size_t at_ = 0;
  std::size_t line_ = 0;
  off_t consumed_ = 0;
  bool ended_ = false;
};

}  // namespace Host
