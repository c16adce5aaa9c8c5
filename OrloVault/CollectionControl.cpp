#include "OrloVault/CollectionControl.h"

namespace Vault {

ControlBase::~ControlBase() {
  if (control_ != nullptr) control_->map_ = nullptr;
}

}  // namespace Vault

namespace OrloVault {

CollectionControl::CollectionControl(Vault::ControlBase* map) : map_(map) {
  if (map_ == nullptr) return;
  if (map_->control_ != nullptr) map_->control_->map_ = nullptr;
  map_->control_ = this;
}

CollectionControl::~CollectionControl() {
  markBeingDestroyed();
  if (map_ != nullptr) map_->control_ = nullptr;
}

}  // namespace OrloVault
