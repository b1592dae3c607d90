#include "layers/vectors.h"

#include "builder/refuse.h"
#include "builder/shapes.h"

void checkChannels(const char* operation, const char* name, const std::vector<float>& vector,
                   const nolk::TensorShape& input) {
    // For an empty input the layer reads no parameters.
    if (!isRepresentable(input) || elementCount(input) == 0) return;
    if (vector.size() < static_cast<std::size_t>(input.c))
        refuse("%s: input has %d channels, %s has %d", operation, input.c, name, static_cast<int>(vector.size()));
}
