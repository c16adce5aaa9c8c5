// One command for the chip, and what the channel asks of it: a message, bulk transfers of a buffer that the
// command keeps alive, or a pass of the flush machine.
// A command is filled, sent and answered by one thread at a time; its last reference may go in any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/switch/Sluice/Fapmask.h"
#include "platform/switch/Sluice/FlushPass.h"
#include "platform/switch/Sluice/SchanMessage.h"
#include "runtime/Dovel/Node.h"

namespace Sluice {

class SchanCmd : public Dovel::Node {
 public:
  // The FAPs that it goes to. Stays the same while the command lives.
  virtual Fapmask const& fapmask() const = 0;

  // How many 32-bit words the command's message takes, and how many the answers of all its FAPs. A command
  // of bulk transfers has no message.
  virtual unsigned int dwc_write() const = 0;
  virtual unsigned int dwc_read() const = 0;
  // Writes the message: exactly dwc_write() words.
  virtual void fillCmdIntoBuf(std::span<std::uint32_t> buf) = 0;
  // Takes the answers, a SchanResponse a FAP in ascending order: exactly dwc_read() words.
  virtual void readRespFromBuf(std::span<std::uint32_t const> buf) = 0;

  // The bulk transfers that each FAP is to run, in their order; none for a message.
  virtual unsigned int bulkTransferCount() const { return 0; }
  virtual BulkTransfer bulkTransfer(unsigned int /*number*/) const { return {}; }

  // The pass that each FAP's flush machine is to run; null for other commands.
  virtual FlushPass const* flushPass() const { return nullptr; }

  // Where the answers of the mask's FAPs, in ascending order, are to stand for as long as the command lives;
  // null for commands that need them no longer than readRespFromBuf() does. Asked once a sending.
  virtual SchanResponse* responseBlock() { return nullptr; }

 private:
  friend class SchanCmds;
  SchanCmd* next_ = nullptr;  // in the list that holds the command; itself where it is the last one
};

// Checks the buffers and leaves the words to the concrete command.
class SchanCmdBase : public SchanCmd {
 public:
  // A buffer of another size than the command has words is a fault of the program and ends the process.
  void fillCmdIntoBuf(std::span<std::uint32_t> buf) final;
  void readRespFromBuf(std::span<std::uint32_t const> buf) final;

 protected:
  virtual void fillCmd(std::span<std::uint32_t> buf) = 0;
  virtual void readResp(std::span<std::uint32_t const> buf) = 0;

  // Whether every one of that many answers, which stand one after the other at the address, is ok.
  static bool isSuccessResponse(std::uint64_t va, std::size_t faps);

  // Clears the message's header and writes the opcode, the instance's two location numbers and the bytes of
  // the whole message.
  static void fillCmdletHeader(schan_xmsg_user_* message, SchanOpcode opcode, std::uint32_t location,
                               std::uint32_t block, std::uint32_t length);
};

}  // namespace Sluice
