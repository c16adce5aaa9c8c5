// The notification writer of a store that nobody is notified of: it counts.
#pragma once

#include "Herald/HeraldWriter.h"

namespace Herald {

class DummyHeraldWriter final : public HeraldWriter {
 public:
  // The counters are the caller's and outlive the object.
  explicit DummyHeraldWriter(Writer::Counters& counters) : counters_(counters) {}

  unsigned attach(SharedMem::EmberId /*emberId*/) override { return 2; }
  void onDetach() override {}
  void removeFiles() override {}
  void post(BasicSlot /*slot*/) noexcept override { ++counters_.posts; }
  Nudge::Sequence sequence(Priority /*priority*/) const override { return Nudge::kNoSequence; }
  Dovel::String headersToString() const override { return "no notifications"; }

 private:
  Writer::Counters& counters_;
};

}  // namespace Herald
