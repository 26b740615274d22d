#pragma once

#include <cstddef>

#include "pipeline/BlockCache.h"

namespace util {

// Standard allocator over BlockCache; all instances are interchangeable.
template <typename T>
class RecyclingAllocator {
public:
    using value_type = T;

    RecyclingAllocator() noexcept = default;
    template <typename U>
    RecyclingAllocator(const RecyclingAllocator<U>&) noexcept {}

    T* allocate(size_t n) { return static_cast<T*>(BlockCache::take(n * sizeof(T))); }
    void deallocate(T* p, size_t n) noexcept { BlockCache::give(p, n * sizeof(T)); }

    template <typename U>
    bool operator==(const RecyclingAllocator<U>&) const noexcept {
        return true;
    }
    template <typename U>
    bool operator!=(const RecyclingAllocator<U>&) const noexcept {
        return false;
    }
};

}  // namespace util
