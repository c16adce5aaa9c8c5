// Shadows of memories that are addressed by index: every row has a value, a default one where none was
// written. See HwShadowBase.h for the thread rule.
#pragma once

#include <memory>
#include <span>

#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"
#include "platform/switch/LoamAsicUtils/HwShadowBase.h"
#include "platform/switch/Statebase/EntityManager.h"

namespace LoamAsicUtils {

class DirectShadowBase : public HwShadowBase {
 public:
  // entrySize() bytes: what a row holds that has no entry. Null before the shadow is initialised and after it
  // is cleaned up.
  unsigned char const* defaultEntry() const { return defaultEntry_.get(); }
  Dovel::Ptr<Statebase::EntityManager> const& entityManager() const { return entityManager_; }
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> const& dmaMemPoolManager() const {
    return dmaMemPoolManager_;
  }

  // Bytes of a row.
  virtual std::uint32_t entrySize() const = 0;

  // The commands that write entrySize() bytes at `data` to a row, on the FAPs of the mask, in each memory of
  // the shadow, memories in ascending order of their ids. A row that the memories don't have is traced and
  // gives an empty list: nothing outside a memory is ever written.
  Dovel::Ptr<Sluice::SchanCmds> schanCmdsWorker(Sluice::Fapmask const& fapmask,
                                                Hardware::Loam::FapRevision const& fapRevision,
                                                unsigned char arrayIndex, unsigned int entryIndex,
                                                unsigned char const* data) const;

 protected:
  DirectShadowBase(Dovel::String const& name, HwShadowKey hwShadowKey,
                   Hardware::Loam::FapRevision const& fapRevision,
                   Dovel::Ptr<BcmGroupAddrInfo const> const& bcmGroupAddrInfo,
                   Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
                   Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> const& loamCmdletRequiredStatus,
                   Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> const& dmaMemPoolManager,
                   Dovel::Ptr<Statebase::EntityManager> const& entityManager)
      : HwShadowBase(name, hwShadowKey, fapRevision, bcmGroupAddrInfo, loamStatus, loamCmdletRequiredStatus),
        entityManager_(entityManager),
        dmaMemPoolManager_(dmaMemPoolManager) {}

  // All zero.
  void initDefaultEntry() { defaultEntry_ = std::make_unique<unsigned char[]>(entrySize()); }
  void cleanupDefaultEntry() { defaultEntry_.reset(); }
  // Copies entrySize() bytes; the default entry must be there.
  void defaultEntryIs(unsigned char const* data);

 private:
  std::unique_ptr<unsigned char[]> defaultEntry_;
  Dovel::Ptr<Statebase::EntityManager> entityManager_;
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> dmaMemPoolManager_;
};

// Those whose rows stand in a store under their keys.
class DirectKeyBasedShadowBase : public DirectShadowBase {
 public:
  // Makes entrySize() bytes the default entry.
  void initShadow(unsigned char const* data) { defaultEntryIs(data); }

 protected:
  using DirectShadowBase::DirectShadowBase;
};

}  // namespace LoamAsicUtils
