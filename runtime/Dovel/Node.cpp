#include "runtime/Dovel/Node.h"

#include "runtime/Dovel/Format.h"

namespace Dovel {

Node::~Node() {
  DOVEL_ASSERT(useCount() == 0, "Dovel::Node", "node {} destroyed with {} users left",
               static_cast<void*>(this), useCount());
}

void Node::lastUserGone() { delete this; }

void Node::noUserLeft(std::uint32_t before) const {
  DOVEL_ASSERT(before == 1, "Dovel::Node", "a use of node {} was given up that nobody held",
               static_cast<void const*>(this));
  if ((flags_ & (kBeingConstructed | kBeingDestroyed)) != 0) return;
  const_cast<Node*>(this)->lastUserGone();
}

}  // namespace Dovel
