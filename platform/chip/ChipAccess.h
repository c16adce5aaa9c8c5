// The boundary to a vendor's hardware: whoever has chips to drive implements these calls, and nothing above
// knows more of a chip than they tell. docs/chip.md has the messages, the memories and their addresses.
//
// Threads: calls come from one thread at a time, the agent's. Answers may be written from any thread.
// Errors: what a chip refuses, or doesn't answer, is told by the response and nowhere else. The calls that
// carry commands throw nothing.
// Order: what is given to one FAP takes effect in the order of the calls, messages, bulk transfers and passes
// alike. FAPs owe nothing to each other.
//
// Responses are memory of the caller, given with status noResponse. The chip writes an answer at most once,
// the status last (Sluice::responseIs does): within the call, later, or never. Until it has been written, the
// FAP was reset or the FAP was told to forget, the caller neither frees the memory nor lets it stand for
// another command.
#pragma once

#include <cstdint>

#include "platform/switch/Sluice/FapId.h"
#include "platform/switch/Sluice/FlushPass.h"
#include "platform/switch/Sluice/SchanMessage.h"
#include "runtime/Dovel/Node.h"

namespace Chip {

class ChipAccess : public Dovel::Node {
 public:
  // Whether there is a chip of that number. Commands for others are neither run nor answered. The null FAP is
  // never there.
  virtual bool present(Sluice::FapId fap) const = 0;

  // Runs one message on the FAP and returns once it was answered or is given up. The message is the caller's
  // and may go after the call. Where it asks for no response, the response stays untouched.
  virtual void message(Sluice::FapId fap, Sluice::schan_xmsg_user_ const& message,
                       Sluice::SchanResponse& response) = 0;

  // Moves rows between the buffer at the DMA address and a memory of the FAP, in ascending order, and returns
  // once that was answered or is given up; always asks for a response. Afterwards the chip touches the buffer
  // no more, answered or not. One that doesn't fit a memory of the chip, or reaches outside the buffers that
  // the chip may see, is refused with badAddress and moves nothing.
  virtual void bulk(Sluice::FapId fap, Sluice::BulkTransfer const& transfer,
                    Sluice::SchanResponse& response) = 0;

  // Has the FAP's flush machine run one pass and returns once that was answered or is given up; always asks
  // for a response, whose image then holds a Sluice::FlushAnswer. At no moment of a pass is an entry missing
  // that it doesn't remove. One that breaks off has done its work on some of the entries. badDatabase tells
  // that there is no such database, badAddress that a read's buffer isn't one that the chip may see.
  virtual void flush(Sluice::FapId fap, Sluice::FlushPass const& pass, Sluice::SchanResponse& response) = 0;

  // Whether anything was written to the FAP since its last reset, by this process or one before it. False
  // tells that the chip is blank, so an implementation that can't know answers false only after a reset.
  virtual bool programmed(Sluice::FapId fap) const = 0;

  // Makes the FAP blank: on return its memories read zero, commands in flight are dropped, and none of their
  // responses is written any more.
  virtual void reset(Sluice::FapId fap) = 0;

  // How often the FAP was reset since the object was made, by reset() or of the chip's own accord; what was
  // in flight then is dropped in either case.
  virtual std::uint64_t resets(Sluice::FapId fap) const = 0;

  // The FAP writes none of the responses that are outstanding: on return their memory may go. What the
  // commands do stays done.
  virtual void forget(Sluice::FapId fap) = 0;
};

}  // namespace Chip
