#include "pipeline/BlockCache.h"

#include <mutex>
#include <new>

namespace util {

namespace {

struct SizeClass {
    size_t bytes = 0;
    int count = 0;
    void* blocks[BlockCache::kBlocksPerSize] = {};
};

// Fixed storage: the store itself never allocates. It is never destroyed, so
// queues that outlive static destruction can still give blocks back.
struct Store {
    static constexpr int kClasses = 8;
    std::mutex mutex;
    SizeClass classes[kClasses];

    SizeClass* find(size_t bytes, bool create) {
        for (SizeClass& c : classes) {
            if (c.bytes == bytes)
                return &c;
        }
        if (!create)
            return nullptr;
        for (SizeClass& c : classes) {
            if (c.bytes == 0) {
                c.bytes = bytes;
                return &c;
            }
        }
        return nullptr;
    }
};

Store& store() {
    static Store* s = new Store;
    return *s;
}

}  // namespace

void* BlockCache::take(size_t bytes) {
    if (bytes <= kMaxBlockBytes) {
        Store& s = store();
        std::lock_guard<std::mutex> guard(s.mutex);
        SizeClass* c = s.find(bytes, false);
        if (c != nullptr && c->count > 0)
            return c->blocks[--c->count];
    }
    return ::operator new(bytes);
}

void BlockCache::give(void* block, size_t bytes) noexcept {
    if (block == nullptr)
        return;
    if (bytes <= kMaxBlockBytes) {
        Store& s = store();
        std::lock_guard<std::mutex> guard(s.mutex);
        SizeClass* c = s.find(bytes, true);
        if (c != nullptr && c->count < kBlocksPerSize) {
            c->blocks[c->count++] = block;
            return;
        }
    }
    ::operator delete(block);
}

}  // namespace util
