// The owning pointer to a PtrInterface. Ptr<T const> gives read-only access to the same object; a
// Ptr<T> converts to it, never back. A null Ptr is a legal value.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <type_traits>
#include <utility>

#include "framework/Moru/PtrInterface.h"

namespace Moru {

template <class T>
class Ptr {
 public:
  using element_type = T;

  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}

  // One more reference to an object that somebody already owns. A new object comes from create().
  explicit Ptr(T* object) noexcept : object_(object) {
    if (object_ != nullptr) object_->referencesInc();
  }

  Ptr(const Ptr& other) noexcept : Ptr(other.object_) {}
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other)
  noexcept : Ptr(other.get()) {}

  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : object_(other.release()) {}

  Ptr& operator=(Ptr other) noexcept {
    swap(other);
    return *this;
  }

  ~Ptr() {
    if (object_ != nullptr) object_->referencesDec();
  }

  // Takes over a reference that the caller holds, without counting a new one.
  static Ptr adopt(T* object) noexcept {
    Ptr ptr;
    ptr.object_ = object;
    return ptr;
  }

  // Gives the reference up to the caller, who must see to its referencesDec().
  [[nodiscard]] T* release() noexcept { return std::exchange(object_, nullptr); }

  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

  T* get() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  T* operator->() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
  T* object_ = nullptr;
};

// The one way to make a shared object: Ptr<T> p = create<T>(constructor arguments...).
template <class T, class... Args>
Ptr<T> create(Args&&... args) {
  return Ptr<T>::adopt(new T(std::forward<Args>(args)...));
}

template <class T, class U>
bool operator==(const Ptr<T>& left, const Ptr<U>& right) noexcept {
  return left.get() == right.get();
}

template <class T>
bool operator==(const Ptr<T>& left, std::nullptr_t) noexcept {
  return left.get() == nullptr;
}

// A second pointer to the same object, for a walk over what the object holds: reactions that run
// meanwhile may exchange the input, and with it drop the object, that `ptr` refers to.
template <class T>
Ptr<T> held(const Ptr<T>& ptr) noexcept {
  return ptr;
}

// By address: good for a set of pointers, not for an order that anybody sees.
template <class T, class U>
std::strong_ordering operator<=>(const Ptr<T>& left, const Ptr<U>& right) noexcept {
  return std::compare_three_way()(static_cast<const void*>(left.get()),
                                  static_cast<const void*>(right.get()));
}

// Null where the object is of another type.
template <class T, class U>
Ptr<T> dynamicPtrCast(const Ptr<U>& ptr) noexcept {
  return Ptr<T>(dynamic_cast<T*>(ptr.get()));
}

// For a type that the caller knows.
template <class T, class U>
Ptr<T> staticPtrCast(const Ptr<U>& ptr) noexcept {
  return Ptr<T>(static_cast<T*>(ptr.get()));
}

template <class T>
std::ostream& operator<<(std::ostream& out, const Ptr<T>& ptr) {
  return out << static_cast<const void*>(ptr.get());
}

}  // namespace Moru

template <class T>
struct std::hash<Moru::Ptr<T>> {
  std::size_t operator()(const Moru::Ptr<T>& ptr) const noexcept {
    return std::hash<T*>()(ptr.get());
  }
};
