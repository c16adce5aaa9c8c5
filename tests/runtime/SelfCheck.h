// Log messages that tell whether they are whole: every part follows from the thread and the number.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "runtime/FastLog/FastLog.h"

struct SelfCheck {
  std::uint64_t thread = 0;
  std::uint64_t number = 0;
  bool sound = false;

  static std::uint64_t sum(std::uint64_t thread, std::uint64_t number) {
    return (number * 0x9e3779b97f4a7c15 + thread) ^ number >> 7;
  }
  // From one to four cells long.
  static std::string pad(std::uint64_t thread, std::uint64_t number) {
    return std::string(number % 190, static_cast<char>('a' + (thread + number) % 26));
  }

  static void log(FastLog::TraceHandle* handle, std::uint64_t thread, std::uint64_t number) {
    FASTLOG(handle, "thread {} number {} sum {} pad {}.", thread, number, sum(thread, number),
            pad(thread, number));
  }

  static SelfCheck parse(std::string const& text) {
    unsigned long long thread = 0;
    unsigned long long number = 0;
    if (std::sscanf(text.c_str(), "thread %llu number %llu", &thread, &number) != 2) return {};
    std::string const expected = fmt::format("thread {} number {} sum {} pad {}.", thread, number,
                                             sum(thread, number), pad(thread, number));
    return {thread, number, text == expected};
  }
};
