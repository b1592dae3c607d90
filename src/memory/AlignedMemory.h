// A growable array whose start is aligned: the arena's storage, and the scratch that a runner's layers share.
//   AlignedMemory<float> scratch(16);  float* columns = scratch.growTo(1000);  // 64-byte aligned, new elements 0
// It never shrinks. Growing keeps the contents and moves them, so pointers into it hold until the next growth.
#pragma once

#include <malloc.h>

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

    // Makes room for n elements and returns the start; throws std::bad_alloc, leaving everything as it was.
    T* growTo(int n) {
        if (n <= size_) return data_.get();
        const std::size_t bytes = static_cast<std::size_t>(n) * sizeof(T);
        std::unique_ptr<T, Free> grown(static_cast<T*>(memalign(byteAlignment(), bytes)));
        if (!grown) throw std::bad_alloc();
        if (size_ > 0) std::memcpy(grown.get(), data_.get(), static_cast<std::size_t>(size_) * sizeof(T));
        std::memset(grown.get() + size_, 0, static_cast<std::size_t>(n - size_) * sizeof(T));
        data_ = std::move(grown);
        size_ = n;
        return data_.get();
    }

    int alignment() const { return alignment_; }
    T* data() const { return data_.get(); }
    int size() const { return size_; }

private:
    struct Free {
        void operator()(T* p) const { std::free(p); }
    };

    std::size_t byteAlignment() const {
        const std::int64_t wanted = static_cast<std::int64_t>(alignment_) * static_cast<std::int64_t>(sizeof(T));
        if (wanted <= 8) return 8;
        std::size_t bytes = 16;
        while (static_cast<std::int64_t>(bytes) < wanted) bytes *= 2;
        return bytes;
    }

    int alignment_;
    std::unique_ptr<T, Free> data_;
    int size_ = 0;
};
