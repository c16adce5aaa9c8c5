// Makes a call at one of the steps of another one. One thread; one object at a time.
#pragma once

#include <cstdint>
#include <functional>

#include "platform/memory/Probe.h"

namespace ScheduleTests {

class Meanwhile final : public Mem::Probe {
 public:
  Meanwhile(std::uint64_t at, std::function<void()> call) : left_(at), call_(std::move(call)) {
    Mem::probe = this;
  }
  ~Meanwhile() { Mem::probe = nullptr; }

  void load(std::uint64_t const& /*cell*/) override { pass(); }
  void store(std::uint64_t& /*cell*/, std::uint64_t /*value*/) override { pass(); }
  void look(char const* /*file*/) override { pass(); }
  bool isDone() const { return left_ == 0; }

 private:
  void pass() {
    if (left_ == 0 || --left_ != 0) return;
    Mem::probe = nullptr;
    call_();
    Mem::probe = this;
  }

  std::uint64_t left_;
  std::function<void()> call_;
};

}  // namespace ScheduleTests
