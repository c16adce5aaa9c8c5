// One command of the S-channel, the message path to the chip, and what the channel asks of it.
// A command is filled, sent and answered by one thread at a time; its last reference may go in any thread.
#pragma once

#include <cstdint>
#include <span>

#include "runtime/Dovel/Node.h"

namespace Sluice {

// A message as it goes to the chip. Integers are in the byte order of the host.
struct schan_xmsg_user_ {
  std::uint32_t opcode;
  std::uint32_t location;  // the first number of the instance addressed
  std::uint32_t block;     // its block, as S-channel commands number them
  std::uint32_t length;    // bytes of data
  std::uint32_t reserved[3];
  std::uint32_t responseRequested;
  std::uint32_t headerEnd[2];
  std::uint32_t data[22];
};
static_assert(sizeof(schan_xmsg_user_) == 128);

class SchanCmd : public Dovel::Node {
 public:
  // How many 32-bit words the command takes, and how many its answer.
  virtual unsigned int dwc_write() const = 0;
  virtual unsigned int dwc_read() const = 0;
  // Writes the command: exactly dwc_write() words.
  virtual void fillCmdIntoBuf(std::span<std::uint32_t> buf) = 0;
  // Takes the chip's answer: exactly dwc_read() words.
  virtual void readRespFromBuf(std::span<std::uint32_t const> buf) = 0;
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

  // Clears the message's header and writes the opcode, the instance's two location numbers and the bytes of
  // data.
  static void fillCmdletHeader(schan_xmsg_user_* message, std::uint32_t opcode, std::uint32_t location,
                               std::uint32_t block, std::uint32_t length);
};

}  // namespace Sluice
