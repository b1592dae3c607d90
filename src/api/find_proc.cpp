#include "api/find_proc.h"

#include <dlfcn.h>
#include <nolk.h>

#include <cstdio>

namespace {

constexpr const char* kBuiltIn = "NolkRaw";

// dlerror clears its message: a second call gives "unknown".
const char* loaderError() {
    const char* text = dlerror();
    return text ? text : "unknown";
}

// The folder of the file that holds `address`, with its separator; empty when there is none.
std::string folderOf(const void* address) {
    Dl_info info;
    if (!dladdr(address, &info) || !info.dli_fname) return "";
    const std::string path = info.dli_fname;
    const std::size_t separator = path.find_last_of("/\\");
    // A separator in the first place means the root folder, where no plug-ins are expected.
    if (separator == std::string::npos || separator == 0) return "";
    return path.substr(0, separator + 1);
}

void* openLibrary(const std::string& file, const void* ownAddress) {
    void* handle = dlopen(file.c_str(), RTLD_NOW);
    if (handle) return handle;
    const std::string folder = folderOf(ownAddress);
    return folder.empty() ? nullptr : dlopen((folder + file).c_str(), RTLD_NOW);
}

}  // namespace

std::pair<std::string, std::string> parseImplCfg(const char* implCfg) {
    const std::string text = implCfg ? implCfg : "";
    const std::size_t colon = text.find(':');
    std::string impl = text.substr(0, colon);
    std::string cfg = colon == std::string::npos ? "" : text.substr(colon + 1);
    if (impl == kBuiltIn) impl.clear();
    return {impl, cfg};
}

void* find_proc(const char* implName, const char* symbol) {
    static char dllVar;  // an address in this library
    const std::string file = std::string("lib") + implName + ".so";
    char message[256];

    void* handle = openLibrary(file, &dllVar);
    if (!handle) {
        std::snprintf(message, sizeof message, "dlopen '%s' failed: %s", file.c_str(), loaderError());
        nolk_push_error_message(message);
        std::fprintf(stderr, "dlopen '%s' failed: %s\n", file.c_str(), loaderError());
        std::fflush(stderr);
        return nullptr;
    }

    void* address = dlsym(handle, symbol);
    // If the plug-in links this library, dlsym may find our own entry point, and we call ourselves. This recursion
    // ends, because each call removes a name from implCfg.
    if (address) return address;
    std::snprintf(message, sizeof message, "dlsym '%s' of '%s' failed: %s", symbol, file.c_str(), loaderError());
    nolk_push_error_message(message);
    std::fprintf(stderr, "dlsym '%s' of '%s' failed: %s\n", symbol, file.c_str(), loaderError());
    std::fflush(stderr);
    return nullptr;
}
