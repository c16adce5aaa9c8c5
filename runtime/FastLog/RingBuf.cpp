#include "runtime/FastLog/RingBuf.h"

#include <unistd.h>

#include <algorithm>

#include "runtime/Dovel/Rdtsc.h"

namespace FastLog {
namespace {

thread_local std::uint32_t threadId = 0;

std::uint32_t currentThreadId() {
  if (threadId == 0) threadId = static_cast<std::uint32_t>(::gettid());
  return threadId;
}

}  // namespace

void RingBuf::forgetThreadId() { threadId = 0; }

void RingBuf::startMsg(TraceFile* traceFile, int msgId) {
  traceFile_ = traceFile;
  msgId_ = static_cast<std::uint32_t>(msgId);
  used_ = 0;
  cut_ = false;
  words_[0] = Dovel::Rdtsc::now();
}

// Once cut, a message takes nothing more: a later argument must not be read in the place of a missing one.
void RingBuf::putNumber(std::uint64_t number) {
  cut_ = cut_ || kMaxArgumentBytes - used_ < sizeof number;
  if (cut_) return;
  std::memcpy(arguments() + used_, &number, sizeof number);
  used_ += sizeof number;
}

void RingBuf::putText(std::string_view text) {
  std::uint16_t size = 0;
  cut_ = cut_ || kMaxArgumentBytes - used_ < sizeof size;
  if (cut_) return;
  std::size_t const room = kMaxArgumentBytes - used_ - sizeof size;
  size = static_cast<std::uint16_t>(std::min(text.size(), room));
  cut_ = size < text.size();
  std::memcpy(arguments() + used_, &size, sizeof size);
  if (size != 0) std::memcpy(arguments() + used_ + sizeof size, text.data(), size);
  used_ += static_cast<std::uint32_t>(sizeof size + size);
}

void RingBuf::endMsg() {
  words_[1] = Subject{msgId_, used_, cut_, currentThreadId()}.word();
  std::size_t const count = wordsOf(used_);
  std::memset(arguments() + used_, 0,
              (count - kLeadWords) * 8 - used_);  // no stray stack bytes into the file
  traceFile_->append(words_, count);
}

}  // namespace FastLog
