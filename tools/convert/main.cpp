// nolk-convert: from ONNX to a model file.
#include "convert/convertCommand.h"

int main(int argc, char** argv) { return convert::convertCommand(argc, argv); }
