#include "platform/switch/LoamAsicUtils/EmRead.h"

#include "platform/switch/LoamAsicUtils/EmBulkCommands.h"
#include "platform/switch/LoamAsicUtils/TableManager.h"

namespace LoamAsicUtils {
namespace {

constexpr std::size_t kEntryBytes = sizeof Sluice::SchanResponse::image;

bool readInstance(Sluice::Channel& channel, HwEmTableBase const& table, BcmInstanceInfo const& instance,
                  FlushHelper const& every, Sluice::FapId fap, Sluice::SendOutcome& outcome,
                  std::function<void(std::span<std::uint8_t const>)> const& visit) {
  Sluice::Fapmask mask;
  mask.fapIdIs(fap, true);
  auto const buffer = DmaMemPoolManager::dmaMemPoolBufferFactory(table.hwTableManager()->dmaMemPoolManager());
  if (!buffer->valid() || buffer->bufSize() < kEntryBytes) return false;
  std::uint32_t from = 0;
  do {
    auto const cmd = emFlushReadCommandFactory(mask, instance, every, buffer, from);
    auto const cmds = Sluice::schanCmdsFactory();
    cmds->cmdEnq(cmd);
    outcome += channel.send(cmds);
    if (cmd->status() != Sluice::SchanStatus::ok) return false;
    for (std::size_t at = 0; at < cmd->entries(); ++at) visit({buffer->va() + at * kEntryBytes, kEntryBytes});
    from = cmd->next();
  } while (from != 0);
  return true;
}

}  // namespace

bool readEntries(Sluice::Channel& channel, HwEmTableBase const& table, Sluice::FapId fap,
                 Sluice::SendOutcome& outcome,
                 std::function<void(std::span<std::uint8_t const>)> const& visit) {
  for (auto const& memory : table.bcmGroupAddrInfo()->memories()) {
    auto const database = Dovel::ptrDynamicCast<BcmEmTableInfo>(memory);
    // The rule that clears the table matches every entry of it.
    FlushHelper const* const every = table.flushHelperHolder()->helper(
        LoamMdb::PhysicalTableId{database->physicalTableId()}, FlushCmdType::flushCmdClear);
    for (auto const& instance : memory->instances())
      if (every == nullptr || !readInstance(channel, table, *instance, *every, fap, outcome, visit))
        return false;
  }
  return true;
}

}  // namespace LoamAsicUtils
