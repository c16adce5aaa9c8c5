// Holds back the signals that a failed write or a file at its size limit sends to the thread, while the
// object lives: the failure is then seen as an error alone. One thread.
#pragma once

#include <signal.h>

namespace Dovel::Impl {

class WriteSignals {
 public:
  WriteSignals();
  WriteSignals(WriteSignals const&) = delete;
  WriteSignals& operator=(WriteSignals const&) = delete;
  ~WriteSignals();

  // To be told the errno of each failed call: takes back the signal that came with it.
  void failedWith(int error);

 private:
  sigset_t blocked_;
  sigset_t before_;
};

}  // namespace Dovel::Impl
