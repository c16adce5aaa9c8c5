// What was asked of a table. Belongs to the table's thread.
#pragma once

#include <cstdint>

#include "runtime/Dovel/PtrIs.h"

namespace LoamAsicUtils {

class HwTableStats : public Dovel::Tracked<HwTableStats> {
 public:
  ~HwTableStats() override;

  // Refused ones too.
  std::uint64_t entryAddCnt() const { return entryAddCnt_; }
  std::uint64_t entryDelCnt() const { return entryDelCnt_; }
  void entryAddCntInc(unsigned long long by) { entryAddCnt_ += by; }
  void entryDelCntInc(unsigned long long by) { entryDelCnt_ += by; }

 private:
  std::uint64_t entryAddCnt_ = 0;
  std::uint64_t entryDelCnt_ = 0;
};

}  // namespace LoamAsicUtils
