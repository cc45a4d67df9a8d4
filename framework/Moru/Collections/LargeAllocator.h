// An allocator for arrays that may be large. A table of a million entries is read at places that
// nobody can foresee, and on small pages most of the time would go into finding the page: where the
// system has large ones, they are asked for. Inside the framework only.
#pragma once

#include <cstddef>
#include <new>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace Moru {

template <class T>
struct LargeAllocator {
  using value_type = T;

  LargeAllocator() = default;
  template <class U>
  explicit LargeAllocator(const LargeAllocator<U>&) {}

  T* allocate(std::size_t count) {
    const std::size_t size = count * sizeof(T);
    void* const memory = ::operator new(size, alignmentOf(size));
#ifdef MADV_HUGEPAGE
    // Advice only: where it is not taken, small pages serve.
    if (size >= largePage) madvise(memory, size, MADV_HUGEPAGE);
#endif
    return static_cast<T*>(memory);
  }

  void deallocate(T* memory, std::size_t count) noexcept {
    ::operator delete(memory, alignmentOf(count * sizeof(T)));
  }

  friend bool operator==(const LargeAllocator&, const LargeAllocator&) { return true; }

 private:
  static constexpr std::size_t largePage = std::size_t{2} << 20;  // bytes, as most processors have

  static constexpr std::align_val_t alignmentOf(std::size_t size) {
    return std::align_val_t{size >= largePage ? largePage : alignof(T)};
  }
};

}  // namespace Moru
