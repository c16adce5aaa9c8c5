#include "platform/switch/Sluice/SchanCmd.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "runtime/Dovel/Format.h"

namespace Sluice {

static_assert(offsetof(schan_xmsg_user_, responseRequested) == 28);
static_assert(offsetof(schan_xmsg_user_, address) == 32);
static_assert(offsetof(schan_xmsg_user_, data) == schan_xmsg_user_::kHeaderBytes);

void SchanCmdBase::fillCmdIntoBuf(std::span<std::uint32_t> buf) {
  DOVEL_ASSERT(buf.size() == dwc_write(), "Sluice::SchanCmdBase", "a command of {} words for a buffer of {}",
               dwc_write(), buf.size());
  fillCmd(buf);
}

void SchanCmdBase::readRespFromBuf(std::span<std::uint32_t const> buf) {
  DOVEL_ASSERT(buf.size() == dwc_read(), "Sluice::SchanCmdBase", "an answer of {} words in a buffer of {}",
               dwc_read(), buf.size());
  readResp(buf);
}

bool SchanCmdBase::isSuccessResponse(std::uint64_t va, std::size_t faps) {
  std::span const responses(reinterpret_cast<SchanResponse const*>(va), faps);
  return std::ranges::all_of(responses,
                             [](SchanResponse const& one) { return one.status == SchanStatus::ok; });
}

void SchanCmdBase::fillCmdletHeader(schan_xmsg_user_* message, SchanOpcode opcode, std::uint32_t location,
                                    std::uint32_t block, std::uint32_t length) {
  std::memset(message, 0, schan_xmsg_user_::kHeaderBytes);
  message->header = std::uint32_t{static_cast<std::uint8_t>(opcode)} << 24 | length;
  message->block = block;
  message->location = location;
}

}  // namespace Sluice
