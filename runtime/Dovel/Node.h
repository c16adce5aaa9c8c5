// The base of every long-lived object: counted by its users, gone with the last of them.
//
// Threads: uses may be taken and given up in any thread once ThreadControl::tspIs() was called; before that
// the counts are plain. What a class holds besides is under the class's own rule.
//
// How a class lives up to it:
// - It derives from Dovel::Tracked<Class, Base> (runtime/Dovel/PtrIs.h) and is made by
//   Dovel::ptrIsImpl<Class>.
// - The constructor of a concrete class ends in a call of its own handleInitialized().
// - Its destructor first calls markBeingDestroyed(), then its own onDelete(), which withdraws what was
//   registered. Neither is virtual: during construction and destruction each class answers for its own part.
//   Both may hand out short-lived Ptrs to the node itself; these never destroy it a second time.
// - An exception that leaves a destructor ends the process.
#pragma once

#include <cstddef>
#include <cstdint>

#include "runtime/Dovel/ThreadControl.h"

namespace Dovel {

class Node {
 public:
  static constexpr std::uint32_t kBeingDestroyed = 0x20000000;
  static constexpr std::uint32_t kBeingConstructed = 0x10000000;

  Node(Node const&) = delete;
  Node& operator=(Node const&) = delete;

  // Nodes are made by ptrIsImpl, which alone knows when construction has ended.
  static void* operator new(std::size_t) = delete;
  static void* operator new[](std::size_t) = delete;
  static void operator delete(void*) {}

  void incUseCount() const { ThreadControl::add(useCount_, 1); }

  // Gives up one use; with the last one the node is destroyed.
  void decUseImpl() const {
    std::uint32_t const before = ThreadControl::add(useCount_, ~std::uint32_t{0}, std::memory_order_acq_rel);
    if (before > 1) return;
    if (before == 1 && flags_ == 0) [[likely]]
      return const_cast<Node*>(this)->lastUserGone();
    noUserLeft(before);
  }

  std::uint32_t useCount() const { return useCount_.load(std::memory_order_relaxed); }
  bool isBeingDestroyed() const { return (flags_ & kBeingDestroyed) != 0; }

 protected:
  Node() = default;
  virtual ~Node() {
    if (useCount() != 0) [[unlikely]]
      destroyedInUse();
  }

  // Destroys the node and frees its memory, unless a class knows better what to do with an unused node.
  virtual void lastUserGone();

  // For such a class: calls `tell`, which may take uses of the node and give them up, and destroys the node
  // where none is left afterwards.
  template <class Tell>
  void destroyUnlessRevived(Tell&& tell) {
    incUseCount();
    tell();
    if (ThreadControl::add(useCount_, ~std::uint32_t{0}, std::memory_order_acq_rel) == 1)
      Node::lastUserGone();
  }

  void markBeingDestroyed() { flags_ |= kBeingDestroyed; }

 private:
  friend class NodeMaker;
  // The last use went while the node is being made or destroyed, or was none.
  void noUserLeft(std::uint32_t before) const;
  [[noreturn]] void destroyedInUse() const;

  mutable std::atomic<std::uint32_t> useCount_{0};
  std::uint32_t flags_ = kBeingConstructed;
};

// The one that ends a node's construction: from here on the last user takes the node along.
class NodeMaker {
 public:
  static void constructed(Node& node) { node.flags_ &= ~Node::kBeingConstructed; }
};

static_assert(sizeof(Node) == 16, "the use count is the second word, the flags follow it");

}  // namespace Dovel
