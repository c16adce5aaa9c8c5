// A named object of the type runtime that may stand in another one. The thread rule is its class's.
#pragma once

#include "runtime/Dovel/Node.h"
#include "runtime/Dovel/Ptr.h"
#include "runtime/Dovel/Publisher.h"
#include "runtime/Dovel/String.h"

namespace Orlo {

class Entity : public Dovel::Node {
 public:
  Dovel::String const& name() const { return name_; }
  // Null for one that stands alone.
  Dovel::Ptr<Entity> const& parent() const { return parent_; }
  void parentIs(Dovel::Ptr<Entity> const& parent) {
    if (parent == parent_) return;
    parent_ = parent;
    handleParent(parent_);
  }

  virtual Dovel::Publisher& publisher() { return publisher_; }

 protected:
  explicit Entity(Dovel::String name) : name_(std::move(name)) {}

  // The entity has got another parent, or lost it.
  virtual void handleParent(Dovel::Ptr<Entity> const& /*parent*/) {}

  // A subscriber may keep the entity alive.
  void lastUserGone() override {
    destroyUnlessRevived([this] { publisher_.publishZeroReferences(); });
  }

 private:
  Dovel::String const name_;
  Dovel::Ptr<Entity> parent_;
  Dovel::Publisher publisher_;
};

}  // namespace Orlo
