// A host of the fast back end: fast_host MODEL FOLDER runs the digits network on libNolkFast.so, and requires that it
// was loaded from that folder.
#include <dlfcn.h>
#include <nolk.h>

#include <cstdio>
#include <cstring>

int main(int, char** argv) {
    nolk::ModelReader* reader = nolk_new_model_reader();
    nolk::RunnerBuilder* builder = nolk_new_runner_builder("NolkFast:num_threads=2");
    if (!reader || !builder) return 1;
    nolk::Runner* runner = reader->readFromFile(builder, 1, argv[1]);
    builder->destroy();
    reader->destroy();
    if (!runner || !runner->isThreadSafe()) return 2;

    // Of an object with virtual functions the first word is the address of their table.
    const void* table = nullptr;
    std::memcpy(&table, static_cast<void*>(runner), sizeof table);
    Dl_info library;
    if (!dladdr(table, &library)) return 3;
    std::printf("%s\n", library.dli_fname);
    if (std::strncmp(library.dli_fname, argv[2], std::strlen(argv[2])) != 0) return 4;
    if (!std::strstr(library.dli_fname, "/libNolkFast.so")) return 5;

    static float image[28 * 28], scores[10];
    nolk::Tensor in{{1, 1, 28, 28, 3}, image}, out{{1, 10, 1, 1, 1}, scores};
    if (!runner->run(&in, 1, &out, 1)) return 6;
    float sum = 0;
    for (float score : scores) sum += score;
    runner->destroy();
    return sum > 0.999f && sum < 1.001f ? 0 : 7;
}
