// The way of commands to chips behind a ChipAccess. Belongs to the agent's thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/chip/ChipAccess.h"
#include "platform/switch/Sluice/Channel.h"
#include "platform/switch/Sluice/ResponseSlots.h"
#include "runtime/Dovel/DebugHandler.h"

namespace Chip {

// Each command runs on its FAPs in ascending order, and for a FAP its bulk transfers in their order, all of
// them whatever those before gave: the answer of the FAP is then the first one that isn't ok. Refusals and
// missing answers are traced at level 1. A command doesn't send from within the calls that it gets.
class SchanChannel : public Dovel::Tracked<SchanChannel, Sluice::Channel>, public Dovel::Debuggable {
 public:
  explicit SchanChannel(Dovel::Ptr<ChipAccess> const& chip);
  ~SchanChannel() override;

  Sluice::SendOutcome send(Dovel::Ptr<Sluice::SchanCmds> const& cmds) override;
  std::uint64_t resets(Sluice::FapId fap) const override { return chip_->resets(fap); }

  // Answers that were owed and didn't come in time, those of FAPs without a chip among them; and those that
  // came later, as far as they have been seen.
  std::uint64_t noResponse() const { return noResponse_; }
  std::uint64_t lateResponses() const { return slots_.late(); }
  Sluice::ResponseSlots const& slots() const { return slots_; }

 private:
  // A command on its way.
  struct Sent {
    Sluice::SchanCmd& cmd;
    unsigned transfers;  // 0: a message, or a pass
    Sluice::FlushPass const* pass;
    bool owesAnswer;
    Sluice::SchanResponse* block;  // of the command; null where it has none
  };

  void onDelete();
  void run(Sluice::SchanCmd& cmd, Sluice::SendOutcome& outcome);
  Sent prepared(Sluice::SchanCmd& cmd);
  void fillMessage(Sluice::SchanCmd& cmd);
  Sluice::SchanResponse answerOf(Sluice::FapId fap, Sent const& sent, Sluice::SendOutcome& outcome);
  Sluice::SchanResponse passAnswerOf(Sluice::FapId fap, Sluice::FlushPass const& pass,
                                     Sluice::SendOutcome& outcome);
  Sluice::SchanResponse bulkAnswerOf(Sluice::FapId fap, Sent const& sent, Sluice::SendOutcome& outcome);
  template <class Give>
  Sluice::SchanResponse ask(Sluice::FapId fap, bool owesAnswer, Give const& give);
  void traceFailure(Sluice::FapId fap, Sluice::SchanStatus status, Sent const& sent) const;

  static constexpr std::size_t kResponseWords = sizeof(Sluice::SchanResponse) / sizeof(std::uint32_t);
  static constexpr std::size_t kFaps = Sluice::FapId::null().value();

  Dovel::Ptr<ChipAccess> chip_;
  Sluice::ResponseSlots slots_;
  alignas(64) Sluice::schan_xmsg_user_ message_{};
  std::array<std::uint32_t, kFaps * kResponseWords> answers_{};
  std::uint64_t noResponse_ = 0;
};

}  // namespace Chip
