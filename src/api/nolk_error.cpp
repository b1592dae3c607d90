// The error channel: one queue for the process, filled by every thread and object, emptied by the host.
// It must run on every processor, so it does not use std::string and std::queue: the linker keeps one copy of their
// functions for the whole library, which may be the copy that was compiled for newer processors.
#include <nolk.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

namespace {

constexpr std::size_t kMaxMessages = 100;

std::mutex errMsgMtx;

// Guarded by errMsgMtx: a ring of messages, each ending with a zero byte.
std::unique_ptr<char[]> errMsg[kMaxMessages];
std::size_t oldest = 0;
std::size_t count = 0;

std::unique_ptr<char[]> popOldest() {
    std::unique_ptr<char[]> message = std::move(errMsg[oldest]);
    oldest = (oldest + 1) % kMaxMessages;
    --count;
    return message;
}

}  // namespace

void nolk_push_error_message(const char* msg) {
    if (!msg || !*msg) return;
    const std::size_t size = std::strlen(msg) + 1;
    std::unique_ptr<char[]> copy(new (std::nothrow) char[size]);
    if (!copy) return;
    std::memcpy(copy.get(), msg, size);

    const std::lock_guard<std::mutex> lock(errMsgMtx);
    if (count == kMaxMessages) popOldest();
    errMsg[(oldest + count) % kMaxMessages] = std::move(copy);
    ++count;
}

void nolk_pop_error_message(char* buf, int size) {
    if (size <= 0 || !buf) return;
    const std::lock_guard<std::mutex> lock(errMsgMtx);
    if (count == 0) {
        buf[0] = '\0';
        return;
    }
    const std::unique_ptr<char[]> message = popOldest();
    // The rest of a longer message is dropped: the host chose the size.
    const std::size_t length = std::min(std::strlen(message.get()), static_cast<std::size_t>(size) - 1);
    std::memcpy(buf, message.get(), length);
    buf[length] = '\0';
}
