#include "platform/switch/Sluice/Channel.h"

namespace Sluice {

SendOutcome& SendOutcome::operator+=(SendOutcome const& other) {
  commands += other.commands;
  refused += other.refused;
  unanswered += other.unanswered;
  full += other.full;
  bulkCommands += other.bulkCommands;
  bulkBytes += other.bulkBytes;
  flushPasses += other.flushPasses;
  flushed += other.flushed;
  if (ok()) status = other.status;
  failed |= other.failed;
  return *this;
}

}  // namespace Sluice
