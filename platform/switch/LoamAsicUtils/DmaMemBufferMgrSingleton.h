// Where the answers to exact-match commands stand until the commands have looked at them, and how often the
// chip refused one. One in a process; belongs to the agent's thread.
#pragma once

#include <map>
#include <vector>

#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"
#include "platform/switch/Sluice/SchanMessage.h"

namespace LoamAsicUtils {

// The answers to one cmdlet.
struct EmSchanResponse {
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer> currentDmaBuffer;  // in which they stand
  std::uint64_t currentVa = 0;  // of the first, a Sluice::SchanResponse a FAP; 0: there are none
};

class DmaMemBufferMgrSingleton {
 public:
  static DmaMemBufferMgrSingleton& singleton();

  // Room for that many answers, none of which has come; in memory of its own, whatever the pools of tables
  // have left.
  EmSchanResponse responsesTake(unsigned int faps);
  void responsesGive(EmSchanResponse const& response, unsigned int faps);

  // Refused commands by the name of their table.
  bool schanErrCounterHas(Dovel::String const& name) const { return errors_.contains(name); }
  // 0 for a table without a counter.
  std::uint64_t schanErrCounter(Dovel::String const& name) const;
  // Makes the counter, or sets it.
  void schanErrCounterIs(Dovel::String const& name, std::uint64_t count) { errors_[name] = count; }
  // The counter must be there.
  void schanErrCounterInc(Dovel::String const& name, std::uint64_t by) { errors_.at(name) += by; }

 private:
  DmaMemBufferMgrSingleton() = default;

  std::map<unsigned int, std::vector<EmSchanResponse>> free_;  // by the number of answers
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer> current_;
  std::map<Dovel::String, std::uint64_t> errors_;
};

}  // namespace LoamAsicUtils
