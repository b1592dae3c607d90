#include "convert/check/samples.h"

#include <utility>

#include "convert/onnx/OnnxError.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

std::vector<std::int64_t> stepsOf(const Dims& dims) {
    std::vector<std::int64_t> steps(dims.size(), 1);
    for (std::size_t axis = dims.size(); axis-- > 1;) steps[axis - 1] = steps[axis] * dims[axis];
    return steps;
}

std::vector<int> permOf(const TensorPlace& place, std::size_t rank) {
    std::vector<int> perm = place.perm;
    for (std::size_t axis = perm.size(); axis < rank; ++axis) perm.push_back(static_cast<int>(axis));
    return perm;
}

// Visits the elements that belong to one sample of an ONNX tensor, in the file's order: use(offset). A sample is one of
// `batch` equal parts of the batch axis.
template <typename Use>
void forEachOfSample(const TensorPlace& place, const Dims& dims, int batch, int sample, Use&& use) {
    const std::vector<std::int64_t> steps = stepsOf(dims);
    Dims extents;
    std::vector<std::int64_t> strides;
    std::int64_t offset = 0;
    for (const int axis : permOf(place, dims.size())) {
        const auto a = static_cast<std::size_t>(axis);
        const std::int64_t extent = axis == place.batchAxis ? dims[a] / batch : dims[a];
        if (axis == place.batchAxis) offset = sample * extent * steps[a];
        extents.push_back(extent);
        strides.push_back(steps[a]);
    }
    Dims index(extents.size(), 0);
    for (std::int64_t left = elementCount(extents); left > 0; --left) {
        use(static_cast<std::size_t>(offset));
        for (std::size_t axis = extents.size(); axis-- > 0;) {
            offset += strides[axis];
            if (++index[axis] < extents[axis]) break;
            offset -= strides[axis] * extents[axis];
            index[axis] = 0;
        }
    }
}

Dims batchDims(const TensorPlace& place, Dims dims, int batch) {
    if (place.batchAxis >= 0) dims[static_cast<std::size_t>(place.batchAxis)] *= batch;
    return dims;
}

// The values as floats or as integers, whichever the type has.
Array arrayOfType(int type, const Dims& dims, Samples values) {
    if (!isIntType(type)) return {type, dims, std::move(values)};
    return {type, dims, std::vector<std::int64_t>(values.begin(), values.end())};
}

}  // namespace

void appendSample(const TensorPlace& place, const Array& array, int batch, int sample, Samples& samples) {
    forEachOfSample(place, array.dims(), batch, sample, [&](std::size_t offset) {
        samples.push_back(array.isFloat() ? array.floats()[offset] : static_cast<float>(array.ints()[offset]));
    });
}

Array randomArray(const TensorPlace& place, const Dims& dims, int batch, int type, std::mt19937& random) {
    const Dims wanted = batchDims(place, dims, batch);
    std::vector<float> values(static_cast<std::size_t>(elementCount(wanted)));
    std::normal_distribution<float> normal;
    std::uniform_int_distribution<int> whole(0, type == onnx::TensorProto::BOOL ? 1 : 127);
    for (float& value : values) value = isIntType(type) ? static_cast<float>(whole(random)) : normal(random);
    return arrayOfType(type, wanted, std::move(values));
}

Array usersArray(const TensorPlace& place, const Dims& dims, const Array& given, int batch, int type) {
    const std::int64_t perSample = elementCount(dims);
    const std::int64_t samples = perSample == 0 ? 0 : given.count() / perSample;
    if (samples < 1 || given.count() % perSample != 0 ||
        given.dims() != batchDims(place, dims, static_cast<int>(samples)))
        throw OnnxError("check input for " + inQuotes(place.name) + " has the shape " + describeDims(given.dims()) +
                        " instead of " + describeDims(dims));
    const Dims wanted = batchDims(place, dims, batch);
    std::vector<float> values(static_cast<std::size_t>(elementCount(wanted)));
    for (int sample = 0; sample < batch; ++sample) {
        Samples taken;
        appendSample(place, given, static_cast<int>(samples), static_cast<int>(sample % samples), taken);
        std::size_t next = 0;
        forEachOfSample(place, wanted, batch, sample, [&](std::size_t offset) { values[offset] = taken[next++]; });
    }
    return arrayOfType(type, wanted, std::move(values));
}

Array sampleAlone(const TensorPlace& place, const Dims& dims, const Array& array, int batch, int sample) {
    std::vector<float> values(static_cast<std::size_t>(elementCount(dims)));
    Samples taken;
    appendSample(place, array, batch, sample, taken);
    std::size_t next = 0;
    forEachOfSample(place, dims, 1, 0, [&](std::size_t offset) { values[offset] = taken[next++]; });
    return arrayOfType(array.type(), dims, std::move(values));
}

}  // namespace convert
