#include "implementations.h"

#include <dlfcn.h>
#include <nolk_model.h>

#include <algorithm>

namespace {

constexpr const char* kBuiltIn = "NolkRaw";
constexpr const char* kFast = "NolkFast";
constexpr const char* kEntryPoint = "nolk_new_runner_builder_impl";

// The folder of libnolk.so, with its separator.
std::string libraryFolder() {
    Dl_info info;
    if (!dladdr(reinterpret_cast<const void*>(&nolk_version), &info) || !info.dli_fname) return "";
    const std::string path = info.dli_fname;
    return path.substr(0, path.rfind('/') + 1);
}

std::string loaderError() {
    const char* const text = dlerror();
    return text ? text : "unknown";
}

// Why the implementation cannot be loaded, in libnolk's words; empty if it can.
std::string loadingProblem(const std::string& name) {
    const std::string file = "lib" + name + ".so";
    void* handle = dlopen(file.c_str(), RTLD_NOW);
    if (!handle) handle = dlopen((libraryFolder() + file).c_str(), RTLD_NOW);
    if (!handle) return "dlopen '" + file + "' failed: " + loaderError();
    if (!dlsym(handle, kEntryPoint))
        return "dlsym '" + std::string(kEntryPoint) + "' of '" + file + "' failed: " + loaderError();
    return "";
}

}  // namespace

std::string implementationName(const std::string& nameAndSettings) {
    const std::string name = nameAndSettings.substr(0, nameAndSettings.find(':'));
    return name.empty() ? kBuiltIn : name;
}

std::string inFull(const std::string& nameAndSettings) {
    return implementationName(nameAndSettings) +
           nameAndSettings.substr(std::min(nameAndSettings.find(':'), nameAndSettings.size()));
}

bool hasImplementation(const std::string& name) { return name == kBuiltIn || loadingProblem(name).empty(); }

const std::string& defaultImplementation() {
    static const std::string name = hasImplementation(kFast) ? kFast : kBuiltIn;
    return name;
}

void requireImplementation(const std::string& nameAndSettings) {
    const std::string name = implementationName(nameAndSettings);
    if (name == kBuiltIn) return;
    if (const std::string problem = loadingProblem(name); !problem.empty()) throw nolk::ModelError(problem);
}
