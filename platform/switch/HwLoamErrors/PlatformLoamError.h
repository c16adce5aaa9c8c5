// The errors of the platform as log entries carry them. Plain values; any thread.
#pragma once

namespace HwLoamErrors {

class PlatformLoamError {
 public:
  // The chip refused a write, or left it without an answer.
  static constexpr unsigned int kWriteFailed = 1;

  constexpr explicit PlatformLoamError(unsigned int code) : code_(code) {}
  constexpr unsigned int getErrorCode() const { return code_; }

 private:
  unsigned int code_;
};

}  // namespace HwLoamErrors
