// The bundle's copy of a table for one key: what the chip should hold. A shadow belongs to the thread of its
// table.
#pragma once

#include "platform/switch/Hardware/FapRevision.h"
#include "platform/switch/Hardware/Status.h"
#include "platform/switch/LoamAsicUtils/BcmGroupAddrInfo.h"
#include "platform/switch/LoamAsicUtils/HwShadowKey.h"
#include "platform/switch/LoamAsicUtils/Types.h"
#include "platform/switch/Sluice/SchanCmds.h"

namespace LoamAsicUtils {

// The instance id of a shadow that stands for all instances of its memories.
inline constexpr InstanceId kConvergentInstance = 255;

class HwShadowBase : public Dovel::Node {
 public:
  Dovel::String const& name() const { return name_; }
  HwShadowKey hwShadowKey() const { return hwShadowKey_; }
  Hardware::Loam::FapRevision const& fapRevision() const { return fapRevision_; }
  Dovel::Ptr<BcmGroupAddrInfo const> const& bcmGroupAddrInfo() const { return bcmGroupAddrInfo_; }
  Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus() const { return loamStatus_; }
  Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> const& loamCmdletRequiredStatus() const {
    return loamCmdletRequiredStatus_;
  }

  // The FAPs of the mask that the shadow serves: all of them where it stands for every FAP.
  Sluice::Fapmask applicableFapmask(Sluice::Fapmask const& fapmask) const;

  // Whether the shadow stands for all instances of its memories, or for the one of its key.
  bool instanceConvergentShadow() const { return instanceConvergentShadow_; }
  void instanceConvergentShadowIs(bool convergent) { instanceConvergentShadow_ = convergent; }

  // The commands that give every row that the table is in charge of its default, on the FAPs of the mask;
  // the shadow is empty afterwards. Null, and nothing done, where the shadow serves none of them.
  virtual Dovel::Ptr<Sluice::SchanCmds> clearShadow(Hardware::Loam::FapRevision const& fapRevision,
                                                    Sluice::Fapmask const& fapmask) = 0;
  // The commands of clearShadow(), without touching the shadow.
  virtual Dovel::Ptr<Sluice::SchanCmds> clearCmds(Hardware::Loam::FapRevision const& fapRevision,
                                                  Sluice::Fapmask const& fapmask) const = 0;
  // The commands of a flush by rule; null for shadows that are not flushed so.
  virtual Dovel::Ptr<Sluice::SchanCmds> formFlushCmds(Hardware::Loam::FapRevision const& /*fapRevision*/,
                                                      Sluice::Fapmask const& /*fapmask*/,
                                                      FlushCmdType /*type*/) const {
    return nullptr;
  }
  // The commands that bring the FAPs of the mask in line with the shadow; null where it serves none of them.
  virtual Dovel::Ptr<Sluice::SchanCmds> download(Dovel::String const& fapType,
                                                 Hardware::Loam::FapRevision const& fapRevision,
                                                 Sluice::Fapmask const& fapmask) const = 0;

 protected:
  HwShadowBase(Dovel::String const& name, HwShadowKey hwShadowKey,
               Hardware::Loam::FapRevision const& fapRevision,
               Dovel::Ptr<BcmGroupAddrInfo const> const& bcmGroupAddrInfo,
               Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
               Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> const& loamCmdletRequiredStatus)
      : name_(name),
        hwShadowKey_(hwShadowKey),
        fapRevision_(fapRevision),
        bcmGroupAddrInfo_(bcmGroupAddrInfo),
        loamStatus_(loamStatus),
        loamCmdletRequiredStatus_(loamCmdletRequiredStatus),
        instanceConvergentShadow_(hwShadowKey.instanceId() == kConvergentInstance) {}

  // Calls visit(instance) for the instances of the memory that the shadow stands for.
  template <class Visit>
  void forEachInstance(BcmRegMemInfo const& memory, Visit&& visit) const {
    if (!instanceConvergentShadow_) {
      if (auto const* const own = memory.instance(hwShadowKey_.instanceId())) visit(*own);
      return;
    }
    for (auto const& instance : memory.instances()) visit(*instance);
  }

 private:
  Dovel::String name_;
  HwShadowKey hwShadowKey_;
  Hardware::Loam::FapRevision fapRevision_;
  Dovel::Ptr<BcmGroupAddrInfo const> bcmGroupAddrInfo_;
  Dovel::Ptr<Hardware::Loam::Status const> loamStatus_;
  Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> loamCmdletRequiredStatus_;
  bool instanceConvergentShadow_;
};

}  // namespace LoamAsicUtils
