// The exceptions of the base library. Each is raised through its own static throwException(message).
#pragma once

#include <exception>

#include "runtime/Dovel/String.h"

namespace Dovel {

class Exception : public std::exception {
 public:
  explicit Exception(String msg) : msg_(std::move(msg)) {}
  Exception(Exception const&) = default;
  Exception& operator=(Exception const&) = default;
  ~Exception() override;

  String const& msg() const { return msg_; }
  char const* what() const noexcept override { return msg_.data(); }

 private:
  String msg_;
};

// What catch clauses name when any failed operation is meant.
class RuntimeException : public Exception {
 public:
  using Exception::Exception;
  ~RuntimeException() override;
  [[noreturn]] static void throwException(String const& message);
};

// A value outside the range of its type.
class RangeException : public RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~RangeException() override;
  [[noreturn]] static void throwException(String const& message);
};

// Memory or file space could not be had.
class MemoryResourceException : public RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~MemoryResourceException() override;
  [[noreturn]] static void throwException(String const& message);
};

// Stored data contradicts itself; also the signal of a view that has gone stale.
class CorruptionDetectedException : public RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~CorruptionDetectedException() override;
  [[noreturn]] static void throwException(String const& message);
};

class InvalidInitializeException : public RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~InvalidInitializeException() override;
  [[noreturn]] static void throwException(String const& message);
};

class NoPermissionException : public RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~NoPermissionException() override;
  [[noreturn]] static void throwException(String const& message);
};

}  // namespace Dovel
