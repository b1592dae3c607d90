// A growable array whose start is aligned: the arena's storage, and the scratch that a runner's layers share.
//   AlignedMemory<float> scratch(16);  float* columns = scratch.growTo(1000);  // 64-byte aligned, new elements 0
// It never shrinks. Growing keeps the contents but moves them, so pointers are valid until the next growth. New
// elements are zero and take no physical memory until they are written.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

template <typename T>
class AlignedMemory {
    static_assert(std::is_trivially_copyable_v<T>, "elements are moved as bytes");

public:
    // alignment counts elements.
    explicit AlignedMemory(int alignment) : alignment_(alignment) {}

    // Makes room for n elements and returns the start. Throws std::bad_alloc, and then changes nothing.
    T* growTo(int n) {
        if (n <= size_) return data_;
        const std::size_t bytes = static_cast<std::size_t>(n) * sizeof(T);
        // The C library cannot allocate zeroed memory with an alignment, so allocate more and start at an aligned byte.
        std::size_t room = bytes + byteAlignment() - 1;
        std::unique_ptr<void, Free> grown(std::calloc(room, 1));
        if (!grown) throw std::bad_alloc();
        void* start = grown.get();
        std::align(byteAlignment(), bytes, start, room);
        if (size_ > 0) std::memcpy(start, data_, static_cast<std::size_t>(size_) * sizeof(T));
        block_ = std::move(grown);
        data_ = static_cast<T*>(start);
        size_ = n;
        return data_;
    }

    int alignment() const { return alignment_; }
    T* data() const { return data_; }
    int size() const { return size_; }

private:
    struct Free {
        void operator()(void* p) const { std::free(p); }
    };

    std::size_t byteAlignment() const {
        const std::int64_t wanted = static_cast<std::int64_t>(alignment_) * static_cast<std::int64_t>(sizeof(T));
        if (wanted <= 8) return 8;
        std::size_t bytes = 16;
        while (static_cast<std::int64_t>(bytes) < wanted) bytes *= 2;
        return bytes;
    }

    int alignment_;
    std::unique_ptr<void, Free> block_;
    T* data_ = nullptr;  // in block_
    int size_ = 0;
};
