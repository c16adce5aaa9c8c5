// What was asked of a table. Belongs to the table's thread.
#pragma once

#include <array>
#include <cstdint>

#include "runtime/Dovel/PtrIs.h"

namespace LoamAsicUtils {

// Where a table's reconciliation stands (MarkSweepTableSm.h).
enum class MarkSweepState : std::uint8_t { idle, marking, downloading, sweeping, done, failed };
inline constexpr std::size_t kMarkSweepStates = 6;

class HwTableStats : public Dovel::Tracked<HwTableStats> {
 public:
  ~HwTableStats() override;

  // Refused ones too.
  std::uint64_t entryAddCnt() const { return entryAddCnt_; }
  std::uint64_t entryDelCnt() const { return entryDelCnt_; }
  void entryAddCntInc(unsigned long long by) { entryAddCnt_ += by; }
  void entryDelCntInc(unsigned long long by) { entryDelCnt_ += by; }

  // How often a reconciliation has come to the state.
  std::uint64_t markSweepCnt(MarkSweepState state) const {
    return markSweepCnt_[static_cast<std::size_t>(state)];
  }
  void markSweepCntInc(MarkSweepState state) { ++markSweepCnt_[static_cast<std::size_t>(state)]; }

 private:
  std::uint64_t entryAddCnt_ = 0;
  std::uint64_t entryDelCnt_ = 0;
  std::array<std::uint64_t, kMarkSweepStates> markSweepCnt_{};
};

}  // namespace LoamAsicUtils
