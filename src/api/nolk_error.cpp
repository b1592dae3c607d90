// The error channel: one queue for the process, filled by every thread and object, emptied by the host.
#include <nolk.h>

#include <cstring>
#include <mutex>
#include <queue>
#include <string>

namespace {

constexpr std::size_t kMaxMessages = 100;

std::mutex errMsgMtx;
std::queue<std::string> errMsg;  // guarded by errMsgMtx

}  // namespace

void nolk_push_error_message(const char* msg) {
    if (!msg || !*msg) return;
    const std::lock_guard<std::mutex> lock(errMsgMtx);
    errMsg.emplace(msg);
    if (errMsg.size() > kMaxMessages) errMsg.pop();
}

void nolk_pop_error_message(char* buf, int size) {
    if (size <= 0 || !buf) return;
    const std::lock_guard<std::mutex> lock(errMsgMtx);
    if (errMsg.empty()) {
        buf[0] = '\0';
        return;
    }
    // What does not fit is lost: the host chose the size.
    const std::string& oldest = errMsg.front();
    const std::size_t length = std::min(oldest.size(), static_cast<std::size_t>(size) - 1);
    std::memcpy(buf, oldest.data(), length);
    buf[length] = '\0';
    errMsg.pop();
}
