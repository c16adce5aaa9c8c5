// What others see of a mounted collection, and by which they drop it: whether it is mounted and quiesced.
// Lives as long as anybody wants it, the collection or not. The thread of the collection.
#pragma once

#include "runtime/Dovel/PtrIs.h"
#include "runtime/Dovel/Publisher.h"
#include "runtime/Orlo/Entity.h"

namespace OrloVault {
class CollectionControl;
}

namespace Vault {

// What a control client may ask of a map. The map and its control know each other for as long as both are.
class ControlBase {
 public:
  ControlBase() = default;
  ControlBase(ControlBase const&) = delete;
  ControlBase& operator=(ControlBase const&) = delete;

  // Drops the store at once, whatever its state.
  virtual void controlDetach() = 0;

  // Null where nobody controls the map.
  OrloVault::CollectionControl* control() const { return control_; }

 protected:
  virtual ~ControlBase();

 private:
  friend class OrloVault::CollectionControl;
  OrloVault::CollectionControl* control_ = nullptr;
};

}  // namespace Vault

namespace OrloSharedMem {

class CollectionControl : public Dovel::Node {
 public:
  static constexpr std::uint32_t kMountStatus = 256;

  // 0 not mounted, 1 mounted.
  int mountStatus() const { return mountStatus_; }
  void mountStatusIs(int status) {
    if (status == mountStatus_) return;
    mountStatus_ = status;
    publisher_.publishChange(kMountStatus, nullptr);
  }
  Dovel::Publisher& publisher() { return publisher_; }

 protected:
  CollectionControl() = default;

 private:
  int mountStatus_ = 0;
  Dovel::Publisher publisher_;
};

}  // namespace OrloSharedMem

namespace OrloVault {

class CollectionControl : public Dovel::Tracked<CollectionControl, OrloSharedMem::CollectionControl> {
 public:
  static constexpr std::uint32_t kQuiesced = 257;

  // Takes the place of the map's former control.
  explicit CollectionControl(Vault::ControlBase* map);
  ~CollectionControl() override;

  bool quiesced() const { return quiesced_; }
  void quiescedIs(bool quiesced) {
    if (quiesced == quiesced_) return;
    quiesced_ = quiesced;
    publisher().publishChange(kQuiesced, nullptr);
  }

  // Keeps the entity of the collection alive; null lets go of it.
  void entityRefIs(Dovel::Ptr<Orlo::Entity> const& entity) { entityRef_ = entity; }
  Dovel::Ptr<Orlo::Entity> const& entityRef() const { return entityRef_; }

  // Null once the collection is gone.
  Vault::ControlBase* map() const { return map_; }

 private:
  friend class Vault::ControlBase;

  Vault::ControlBase* map_;
  bool quiesced_ = false;
  Dovel::Ptr<Orlo::Entity> entityRef_;
};

}  // namespace OrloVault
