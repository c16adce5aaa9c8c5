// The owning reference to a node: holds one pointer and one use of what it points to. Null is a legal value.
// A Ptr itself is a plain value of its thread; the node's count may be shared (Node.h).
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <utility>

namespace Dovel {

template <class T>
class Ptr {
 public:
  constexpr Ptr() = default;
  constexpr Ptr(std::nullptr_t) {}
  explicit Ptr(T* node) : node_(node) { take(); }

  Ptr(Ptr const& other) : node_(other.node_) { take(); }
  Ptr(Ptr&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}

  // From a derived class, or to const.
  template <class U>
    requires std::convertible_to<U*, T*>
  Ptr(Ptr<U> const& other) : node_(other.node_) {
    take();
  }
  template <class U>
    requires std::convertible_to<U*, T*>
  Ptr(Ptr<U>&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}

  ~Ptr() {
    if (node_ != nullptr) node_->decUseImpl();
  }

  // The old node goes last, so that assigning from something that it owns is safe.
  Ptr& operator=(Ptr other) noexcept {
    std::swap(node_, other.node_);
    return *this;
  }

  T* ptr() const { return node_; }
  T* operator->() const { return node_; }
  T& operator*() const { return *node_; }
  explicit operator bool() const { return node_ != nullptr; }

  template <class U>
  friend bool operator==(Ptr const& a, Ptr<U> const& b) {
    return a.ptr() == b.ptr();
  }
  friend bool operator==(Ptr const& a, std::nullptr_t) { return a.node_ == nullptr; }
  friend bool operator==(Ptr const& a, T const* b) { return a.node_ == b; }
  friend std::strong_ordering operator<=>(Ptr const& a, Ptr const& b) {
    return std::compare_three_way()(a.node_, b.node_);
  }

 private:
  template <class U>
  friend class Ptr;

  void take() const {
    if (node_ != nullptr) node_->incUseCount();
  }

  T* node_ = nullptr;
};

// The node as a T, or null where it is none.
template <class T, class U>
Ptr<T> ptrDynamicCast(Ptr<U> const& node) {
  return Ptr<T>(dynamic_cast<T*>(node.ptr()));
}

}  // namespace Dovel

template <class T>
struct std::hash<Dovel::Ptr<T>> {
  std::size_t operator()(Dovel::Ptr<T> const& node) const { return std::hash<T*>()(node.ptr()); }
};
