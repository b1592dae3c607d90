// nolk-convert: from ONNX to a model file.
#include <malloc.h>

#include "convert/convertCommand.h"

int main(int argc, char** argv) {
    // Weights are freed while others are made: large blocks shall go back to the system at once.
    constexpr int kLargeBlock = 128 * 1024;
    mallopt(M_MMAP_THRESHOLD, kLargeBlock);
    return convert::convertCommand(argc, argv);
}
