// Loads and runs a model of unknown origin in a process of its own, under a seccomp filter that leaves it memory, time
// and its open files: it cannot open a file, a socket or another program, even if a fault in a library let the model
// take control. Linux on x86-64 and AArch64. Uses only the public headers.
//   sandbox MODEL           runs the model on inputs of 0.5, and prints the largest value of each output
//   sandbox --probe MODEL   checks that the filter ends a process that opens a file, a socket or a program, and that
//                           memory beyond the limit is refused
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <nolk_model.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <vector>

namespace {

constexpr int kFailure = 1, kNoFilter = 77;  // of this kernel, as emulators have none

// What the network may cost. LimitExceeded says what it would need.
constexpr nolk::ModelLimits kLimits{std::int64_t{256} << 20, 2'000'000'000};

// In case the estimate is wrong, and for the host's buffers, which it leaves out: a small file can name a large tensor
// as an output many times. The address space is four times what kLimits allows the network. This program does not run
// with sanitizers, which need more address space and other system calls.
constexpr rlim_t kSeconds = 20, kAddressSpaceBytes = rlim_t{1} << 30;

#if defined(__x86_64__)
constexpr unsigned kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr unsigned kArchitecture = AUDIT_ARCH_AARCH64;
#else
#error "no system calls listed for this processor"
#endif

// All that allocating, computing, printing and ending take. With more than one thread, clone3 and rseq are added.
// tgkill, which abort calls, is left out: it can send signals to other processes. The filter ends an abort too.
constexpr unsigned kAllowed[] = {
    SYS_brk,         SYS_clock_gettime, SYS_exit,       SYS_exit_group,   SYS_fstat,          SYS_futex,
    SYS_getpid,      SYS_getrandom,     SYS_gettid,     SYS_madvise,      SYS_mmap,           SYS_mprotect,
    SYS_mremap,      SYS_munmap,        SYS_newfstatat, SYS_rt_sigaction, SYS_rt_sigprocmask, SYS_rt_sigreturn,
    SYS_sched_yield, SYS_sigaltstack,   SYS_write};

// False if the kernel has no filters.
bool installFilter() {
    std::vector<sock_filter> code = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
    };
    for (const unsigned call : kAllowed) {
        code.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        code.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    }
    code.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
    const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

void print(const std::string& text) {
    if (write(STDOUT_FILENO, text.data(), text.size()) < 0) _exit(kFailure);
}

// Tensors with storage for every element, which is 0.5. Runners reject null pointers, also of no elements.
struct Tensors {
    Tensors(const nolk::ModelInfo& info, const std::vector<int>& operations) {
        tensors.reserve(std::max<std::size_t>(operations.size(), 1));
        for (const int operation : operations) {
            const nolk::TensorShape shape = info.operations[static_cast<std::size_t>(operation)].output;
            std::size_t count = 1;
            for (const int extent : {shape.n, shape.c, shape.h, shape.w})
                count *= static_cast<std::size_t>(std::max(extent, 0));
            storage.emplace_back(count, 0.5f);
            storage.back().reserve(1);
            tensors.push_back({shape, storage.back().data()});
        }
    }

    std::vector<std::vector<float>> storage;
    std::vector<nolk::Tensor> tensors;
};

void loadAndRun(const std::vector<char>& file) {
    nolk::InspectionOptions options;
    options.depth = nolk::InspectionDepth::records;
    const nolk::ModelInfo info = nolk::inspectModel(file.data(), file.size(), options);
    const nolk::Owned<nolk::Runner> runner = nolk::loadModel(file.data(), file.size(), 1, nullptr, kLimits);
    Tensors inputs(info, info.inputs), outputs(info, info.outputs);
    if (!runner->run(inputs.tensors.data(), static_cast<int>(inputs.tensors.size()), outputs.tensors.data(),
                     static_cast<int>(outputs.tensors.size())))
        throw nolk::ModelError("the run failed");
    for (const std::vector<float>& values : outputs.storage) {
        const auto largest = std::max_element(values.begin(), values.end());
        const std::string text = values.empty() ? "no elements" : std::to_string(largest - values.begin());
        print("largest of " + std::to_string(values.size()) + ": " + text + "\n");
    }
}

// Runs the function in a process under the filter and the limits. Returns its status as waitpid does.
template <typename Function>
int inSandbox(Function function) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit time{kSeconds, kSeconds}, memory{kAddressSpaceBytes, kAddressSpaceBytes};
        setrlimit(RLIMIT_CPU, &time);
        setrlimit(RLIMIT_AS, &memory);
        if (!installFilter()) _exit(kNoFilter);
        try {
            function();
        } catch (const std::bad_alloc&) {
            print("not enough memory: the limit is " + std::to_string(kAddressSpaceBytes >> 20) + " MB\n");
            _exit(kFailure);
        } catch (const std::exception& error) {
            print(std::string(error.what()) + "\n");
            _exit(kFailure);
        }
        _exit(0);
    }
    int status = -1;
    if (child < 0 || waitpid(child, &status, 0) != child) return -1;
    return status;
}

bool isKilled(const char* what, void (*attempt)()) {
    const int status = inSandbox(attempt);
    const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGSYS;
    std::printf("%s: %s\n", what, killed ? "ended by the filter" : "NOT ended by the filter");
    return killed;
}

bool isRefused() {
    const int status = inSandbox([] { ::operator delete(::operator new(kAddressSpaceBytes)); });
    const bool refused = WIFEXITED(status) && WEXITSTATUS(status) == kFailure;
    std::printf("memory beyond the limit: %s\n", refused ? "refused" : "NOT refused");
    return refused;
}

bool probe() {
    const bool open = isKilled("open", [] { ::open("/dev/null", O_RDONLY); });
    const bool socket = isKilled("socket", [] { ::socket(AF_INET, SOCK_STREAM, 0); });
    const bool exec = isKilled("exec", [] { ::execl("/bin/true", "true", nullptr); });
    const bool signal = isKilled("signal", [] { ::kill(::getpid(), 0); });
    return open && socket && exec && signal && isRefused();
}

}  // namespace

int main(int argc, char** argv) {
    const bool probes = argc == 3 && std::strcmp(argv[1], "--probe") == 0;
    if (argc != 2 && !probes) {
        std::fputs("sandbox [--probe] MODEL\n", stderr);
        return 2;
    }
    std::ifstream stream(argv[argc - 1], std::ios::binary);
    const std::vector<char> file{std::istreambuf_iterator<char>(stream), {}};
    if (file.empty()) {
        std::fprintf(stderr, "%s: cannot be read, or empty\n", argv[argc - 1]);
        return kFailure;
    }
    const int status = inSandbox([&file] { loadAndRun(file); });
    if (WIFSIGNALED(status)) std::fprintf(stderr, "the sandbox was ended by signal %d\n", WTERMSIG(status));
    if (!WIFEXITED(status)) return kFailure;
    if (WEXITSTATUS(status) == kNoFilter) std::fputs("this kernel has no seccomp filters\n", stderr);
    if (WEXITSTATUS(status) != 0) return WEXITSTATUS(status);
    return !probes || probe() ? 0 : kFailure;
}
