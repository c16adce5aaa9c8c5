#include "runtime/Dovel/Node.h"

#include "runtime/Dovel/Format.h"

namespace Dovel {

void Node::lastUserGone() { delete this; }

void Node::noUserLeft(std::uint32_t before) const {
  DOVEL_ASSERT(before == 1, "Dovel::Node", "a use of node {} was given up that nobody held",
               static_cast<void const*>(this));
}

void Node::destroyedInUse() const {
  fmassert("Dovel::Node", __FILE__, __func__, __LINE__, "node {} destroyed with {} users left",
           static_cast<void const*>(this), useCount());
}

}  // namespace Dovel
