// The fast log: a ring of the newest messages in a mapped file, which outlives the process however it ends.
// Meant for paths where formatting a trace line would cost too much: a message is stored unformatted, in some
// tens of nanoseconds, and made readable later by `hwtables fastlog`. Any thread may log.
//
// The log is on when HWTABLES_FASTLOG names a directory while the library is loaded. A forked child logs
// nothing, as the file is its parent's; it may open a log of its own.
#pragma once

#include <string>

#include "runtime/Dovel/Format.h"
#include "runtime/FastLog/MsgDesc.h"
#include "runtime/FastLog/RingBuf.h"
#include "runtime/FastLog/TraceFile.h"

namespace FastLog {

// What a logging site is given: the way to its file.
class TraceHandle {
 public:
  // As TraceFile.
  explicit TraceHandle(std::string path, TraceFile::Size size = TraceFile::Size())
      : file_(std::move(path), size) {}

  // The file for sites of any thread; owned by the handle.
  TraceFile* mtTraceFile() { return &file_; }

 private:
  TraceFile file_;
};

// The process's own log; null where it is off.
extern TraceHandle* defaultFastLogHandle;

// Opens the process's log in the directory of HWTABLES_FASTLOG, as the library does when it is loaded, for a
// forked child that lives on. Without effect where a log is open or the variable is unset; a failure is told
// on stderr and leaves the handle null. To be called before other threads log.
void openDefaultLog();

// The body of FASTLOG for a handle that isn't null.
template <class... Args>
void log(TraceHandle& handle, int& msgId, char const* file, int line,
         Dovel::FormatText<std::type_identity_t<Args>...> format, Args const&... args) {
  TraceFile* const traceFile = handle.mtTraceFile();
  if (!TraceFile::msgIdInitialized(msgId)) [[unlikely]] {
    MsgDesc desc(traceFile, &msgId, file, line);
    MsgFormatString::put(desc, format.view());
    msgDesc(desc, args...);
    desc.finish();
  }
  RingBuf ringBuf;
  ringBuf.startMsg(traceFile, std::atomic_ref<int>(msgId).load(std::memory_order_relaxed));
  (put(ringBuf, args), ...);
  ringBuf.endMsg();
}

}  // namespace FastLog

// FASTLOG(FastLog::defaultFastLogHandle, "moving {} to {}", from, to): where the handle is null, none of the
// arguments is evaluated. They are numbers, strings or void pointers.
#define FASTLOG(handle, ...)                                                         \
  do {                                                                               \
    if (::FastLog::TraceHandle* const fastLogHandle = (handle)) [[unlikely]] {       \
      static int fastLogMsgId;                                                       \
      ::FastLog::log(*fastLogHandle, fastLogMsgId, __FILE__, __LINE__, __VA_ARGS__); \
    }                                                                                \
  } while (false)
