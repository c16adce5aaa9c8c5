// The memory that chips answer into, and the rule that keeps late answers out of what others wait for: a slot
// whose answer did not come is put aside and given to nobody until that answer was seen, or can't come any
// more. One thread; the chip may answer from any other.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/switch/Sluice/FapId.h"
#include "platform/switch/Sluice/SchanMessage.h"

namespace Sluice {

// For the chip: the whole answer stands before its status tells that it has come.
inline void responseIs(SchanResponse& response, SchanResponse const& answer) {
  for (std::size_t word = 0; word < std::size(answer.image); ++word)
    response.image[word] = answer.image[word];
  std::atomic_ref(response.status).store(answer.status, std::memory_order_release);
}

inline bool isAnswered(SchanResponse& response) {
  return std::atomic_ref(response.status).load(std::memory_order_acquire) != SchanStatus::noResponse;
}

class ResponseSlots {
 public:
  // A response without an answer. It stays where it is while the slots live.
  SchanResponse& take() {
    if (free_.empty()) [[unlikely]]
      more();
    SchanResponse& response = *free_.back();
    free_.pop_back();
    response = {};
    return response;
  }

  // Gives a response back that has its answer, or that no chip was given.
  void give(SchanResponse& response) { free_.push_back(&response); }

  // Gives a response back that has no answer. `resets` is how often the FAP had been reset when it was asked:
  // it answers nothing of before a reset.
  void putAside(SchanResponse& response, FapId fap, std::uint64_t resets);

  // Takes those put aside into use again whose answer has come, and those of FAPs that were reset since.
  // resetsOf(FapId) tells how often that was by now.
  template <class ResetsOf>
  void lookAgain(ResetsOf const& resetsOf) {
    std::erase_if(aside_, [&](Aside const& waiting) {
      bool const late = isAnswered(*waiting.response);
      if (!late && resetsOf(waiting.fap) == waiting.resets) return false;
      late_ += late ? 1U : 0U;
      give(*waiting.response);
      return true;
    });
  }

  struct Aside {
    SchanResponse* response;
    FapId fap;
    std::uint64_t resets;
  };
  std::vector<Aside> const& aside() const { return aside_; }

  // Answers that came after their response had been put aside.
  std::uint64_t late() const { return late_; }
  // All responses, whoever has them.
  std::size_t size() const { return chunks_.size() * kChunk; }

 private:
  static constexpr std::size_t kChunk = 64;
  // None lies across two cache lines.
  struct alignas(sizeof(SchanResponse)) Slot : SchanResponse {};

  void more();

  std::vector<std::unique_ptr<Slot[]>> chunks_;
  std::vector<SchanResponse*> free_;  // has room for all
  std::vector<Aside> aside_;
  std::uint64_t late_ = 0;
};

}  // namespace Sluice
