// The base of everything that is shared: entities, reactors, machines.
//
// The reference count is part of the object. It starts at one, which belongs to whoever creates the
// object (Moru::create hands it to the first Ptr): a Ptr that a constructor takes to `this` and
// drops again cannot destroy an object that is still being built. Nor can one taken during
// destruction.
#pragma once

#include <atomic>
#include <cstdint>

namespace Moru {

class PtrInterface {
 public:
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  void referencesInc() const noexcept {
    if (threadSafe_) [[unlikely]] {
      references_.fetch_add(1, std::memory_order_relaxed);
    } else {
      references_.store(references() + 1, std::memory_order_relaxed);
    }
  }

  // Drops one reference; destroys the object when it was the last.
  void referencesDec() const noexcept {
    std::uint32_t before = 0;
    if (threadSafe_) [[unlikely]] {
      before = references_.fetch_sub(1, std::memory_order_acq_rel);
    } else {
      before = references();
      references_.store(before - 1, std::memory_order_relaxed);
    }
    if (before == 1) lastReferenceGone();
  }

  std::uint32_t references() const noexcept { return references_.load(std::memory_order_relaxed); }

  // Makes every count of the process atomic (off by default). Call it before a second thread
  // touches any shared object; it is not meant to be switched back while one does.
  static void threadSafeIs(bool threadSafe) noexcept { threadSafe_ = threadSafe; }
  static bool threadSafe() noexcept { return threadSafe_; }

 protected:
  PtrInterface() noexcept = default;
  virtual ~PtrInterface() = default;

 private:
  friend class Delivery;

  // Far from zero in both directions, so that no pointer taken and dropped by a destructor, nor by
  // what the destructor calls, destroys the object a second time.
  static constexpr std::uint32_t beingDestroyed = 1U << 30;

  // Whether a running delivery works with the object.
  virtual bool inUse() const noexcept { return false; }

  void lastReferenceGone() const noexcept;
  void destroy() const noexcept;

  // With relaxed loads and stores the plain count costs what a plain integer costs.
  mutable std::atomic<std::uint32_t> references_{1};
  mutable bool condemned_ = false;  // to be destroyed when it is no longer in use
  static inline bool threadSafe_ = false;
};

}  // namespace Moru
