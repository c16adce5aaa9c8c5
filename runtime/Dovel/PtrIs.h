// Making nodes: memory from the slab, counted by type, handed out as a Ptr. Any thread.
#pragma once

#include <new>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "runtime/Dovel/Node.h"
#include "runtime/Dovel/Ptr.h"
#include "runtime/KilnSlab/KilnSlab.h"
#include "runtime/Orlo/AllocTrackTypeInfo.h"

namespace Dovel {
namespace Impl {

// Objects too large or too strictly aligned for a slab cell come from operator new. The check looks at one
// type, for which the second condition may add nothing.
template <class T>
// NOLINTNEXTLINE(misc-redundant-expression)
constexpr bool fitsSlab = sizeof(T) <= KilnSlab::kLargestCell && alignof(T) <= KilnSlab::kCellAlignment;

template <class T>
void* nodeMemory() {
  if constexpr (fitsSlab<T>) {
    return KilnSlab::slabAlloc(sizeof(T));
  } else {
    return ::operator new(sizeof(T), std::align_val_t(alignof(T)));
  }
}

template <class T>
void nodeMemoryFree(void* memory) {
  if constexpr (fitsSlab<T>) {
    KilnSlab::slabFree(memory, typeid(T));
  } else {
    ::operator delete(memory, std::align_val_t(alignof(T)));
  }
}

}  // namespace Impl

// What each concrete node class derives from: `class Leaf : public Tracked<Leaf, Branch>`. It stands between
// a class and its base, so that every class of a hierarchy has a tracker of its own and is freed the way it
// was made.
template <class T, class Base = Node>
class Tracked : public Base {
 public:
  using Base::Base;
  using TrackedType = T;

  static void operator delete(void* memory) {
    Impl::nodeMemoryFree<T>(memory);
    Orlo::AllocTrackTypeInfo::trackDeallocation(memAllocationTracker_);
  }

  static inline Orlo::AllocTrackTypeInfo* memAllocationTracker_ = nullptr;
};

// Makes a T. Where its constructor throws, the memory is given back, nothing stays counted and the exception
// goes on.
template <class T, class... Args>
Ptr<T> ptrIsImpl(Args&&... args) {
  static_assert(std::is_same_v<typename T::TrackedType, T>,
                "derive the class itself from Tracked<Class, Base>");
  Orlo::AllocTrackTypeInfo::_trackAllocation(&T::memAllocationTracker_, typeid(T), sizeof(T), alignof(T));
  void* memory = nullptr;
  T* node;
  try {
    memory = Impl::nodeMemory<T>();
    node = ::new (memory) T(std::forward<Args>(args)...);
  } catch (...) {
    Orlo::AllocTrackTypeInfo::trackDeallocation(T::memAllocationTracker_);
    if (memory != nullptr) Impl::nodeMemoryFree<T>(memory);
    throw;
  }
  Ptr<T> made(node);
  NodeMaker::constructed(*node);
  return made;
}

}  // namespace Dovel
