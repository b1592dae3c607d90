// nolk: inference for neural networks on CPUs. nolk_layers.h and nolk_model.h go with it.
//
//   nolk::Runner* runner = nolk_new_runner(nullptr, bytes, size, 1);   // bytes of a model file, batch 1
//   nolk::Tensor in{{1, 1, 28, 28, 3}, pixels}, out{{1, 10, 1, 1, 1}, scores};
//   runner->run(&in, 1, &out, 1);
//   runner->destroy();
//
// Hosts release every object that they get by calling its destroy(), never with delete. A function that fails returns
// null or false. It prints the reason to standard error and, except for Runner::run, also puts it in a queue, from
// which nolk_pop_error_message takes it. The comments of ModelReader and nolk_wrap_batch_runner list the failures
// without a message. Tensors are float32, dense and row-major in the order [n, c, h, w]; sizes count elements.
// docs/model-format.md describes the model file.
#ifndef NOLK_H
#define NOLK_H

#include <cstddef>
#include <cstdint>

// The version of this header and of the library that it came with.
#define NOLK_VERSION_MAJOR 1
#define NOLK_VERSION_MINOR 0
#define NOLK_VERSION_PATCH 0

#define NOLK_API __attribute__((visibility("default")))

// Operation codes that a builder passes on to its layers.
enum ActivateType : std::int32_t {
    ACT_RELU = 0,
    ACT_SIGMOID = 1,
    ACT_EXP = 2,
    ACT_CLIP = 3,
    ACT_HARD_SIGMOID = 4,
    ACT_ABS = 5,
    ACT_LEAKY_RELU = 6,
    ACT_TANH = 7,
    ACT_PRELU = 8
};

enum EltwiseType : std::int32_t { ELTWISE_ADD = 0, ELTWISE_SUB = 1, ELTWISE_MUL = 2, ELTWISE_DIV = 3, ELTWISE_MAX = 4 };

enum PoolingType : std::int32_t { POOL_MAX = 0, POOL_AVG = 1 };

namespace nolk {

// A symbolic tensor of a network that is being recorded. Opaque to hosts; owned by the builder that returned it and
// valid until that builder is destroyed.
class TensorX;

// Extents of a tensor. Runner::run compares dims too: it rejects [1, 8, 1, 1] with dims 3 if the network's tensor has
// dims 1. The element count, n * c * h * w, must fit 32 bits; it is 0 when an extent is below 1.
struct TensorShape {
    std::int32_t n = 0;     // batch size
    std::int32_t c = 0;     // channels
    std::int32_t h = 0;     // rows
    std::int32_t w = 0;     // columns
    std::int32_t dims = 3;  // dimensions after the batch: 3 for [n, c, h, w], 1 for a matrix [n, c] (then h = w = 1)
};

// A view of a tensor: as many floats as its shape has elements. The caller owns them.
struct Tensor {
    TensorShape shape;
    float* data = nullptr;
};

// A kernel size, stride or dilation, in rows and columns.
struct DimsHW {
    std::int32_t h = 0;
    std::int32_t w = 0;
};

// Rows and columns added around a plane: h becomes top + h + bottom, w becomes left + w + right.
struct Padding {
    std::int32_t top = 0;
    std::int32_t bottom = 0;
    std::int32_t left = 0;
    std::int32_t right = 0;
};

// Kernel and bias of one convolve, deConvolve or fullConnect. Until RunnerBuilder::build has returned, the arrays must
// stay valid and must not be used by another operation: build copies them, and changes them in place when it folds a
// batch normalisation into a convolution.
struct Weights {
    std::int32_t groups = 0;
    std::int32_t outChannels = 0;  // of one group
    std::int32_t inChannels = 0;   // of one group
    std::int32_t kernelH = 0;      // rows of the kernel
    std::int32_t kernelW = 0;      // columns of the kernel
    bool shared = false;           // true: the arrays hold one group's values, and every group uses them
    float* weight = nullptr;       // [groups, outChannels, inChannels, kernelH, kernelW]; without groups when shared.
                                   // deConvolve reads [inChannels, outChannels, kernelH, kernelW]
    float* bias = nullptr;         // [groups, outChannels], [outChannels] when shared, or null for none
};

// Parameters per channel: count floats.
struct Vector {
    std::int32_t count = 0;
    float* data = nullptr;
};

// Order of time in an LSTM. `both` runs two passes; the backward outputs follow the forward ones.
enum class Direction : std::int32_t { forward = 0, backward = 1, both = 2 };

// Weights of an LSTM with H = hiddenSize, I = inputSize. Each direction has a block, the forward one first; a block
// holds the gates in the order input, output, forget, candidate. The arrays must stay valid until RunnerBuilder::build
// has returned.
struct LstmWeights {
    Direction direction = Direction::forward;
    std::int32_t numDirections = 1;     // 2 when direction is both, else 1
    std::int32_t inputSize = 0;         // I: features of one time step
    std::int32_t hiddenSize = 0;        // H: outputs of one time step and direction
    float* inputWeights = nullptr;      // [numDirections, 4, H, I]
    float* recurrentWeights = nullptr;  // [numDirections, 4, H, H]
    float* bias = nullptr;              // [numDirections, 2, 4, H] (input half, recurrent half), or null for zeros
    bool splitBias = true;              // the two halves of the bias are summed; false: the bias is not used
};

// Indices start, start + step, ... below end, along axis (-4 to 3). A negative start counts as 0 and an end beyond the
// extent as the extent.
struct SlicePos {
    std::int32_t axis = 0;
    std::int32_t start = 0;
    std::int32_t end = 0;
    std::int32_t step = 1;
};

// A permutation of the axes n = 0, c = 1, h = 2, w = 3: dimension i of the output is dimension axes[i] of the input.
struct Perm {
    std::int32_t axes[4] = {0, 1, 2, 3};
};

// An axis; the values -4 to -1 name n, c, h and w counted from the end.
enum class Axis : std::int32_t { n = 0, c = 1, h = 2, w = 3 };

enum class BasicOp : std::int32_t { maximum = 0, mean = 1, sum = 2, minimum = 3 };

// What reshape does with the elements: nchw keeps their order, nhwc reorders them to channel-last.
enum class TensorLayout : std::int32_t { nchw = 0, nhwc = 1 };

enum class ResizeMode : std::int32_t { linear = 1, nearest = 2 };

// Source coordinate of output index d when an extent goes from `in` to `out` (linear mode only):
// halfPixel (d + 0.5) * in / out - 0.5, alignCorners d * (in - 1) / (out - 1).
enum class ResizeTransMode : std::int32_t { halfPixel = 0, alignCorners = 1 };

// A network that is ready to run.
class Runner {
public:
    // Runs the network once. inputs and outputs are arrays in the order in which the inputs and outputs were given to
    // the builder. Shapes must match exactly. data must not be null; the caller owns it. If a count, shape or pointer
    // is wrong, it prints a line to standard error, writes no outputs and returns false. The runner itself allocates
    // only scratch memory, in the first run. A wrapped runner takes any batch (nolk_wrap_batch_runner says which
    // shapes), allocates in every call, and may have written outputs when a run fails. Throws std::bad_alloc when there
    // is no memory for this, and std::system_error when a thread cannot be started (num_threads above 1). The runner
    // can be used again after it; outputs may have been written in part.
    virtual bool run(Tensor* inputs, int inputCount, Tensor* outputs, int outputCount) = 0;

    // Releases the runner and all that it owns. No other call of it may be in progress, except for a wrapped runner
    // with a batch above 1, which lets its callers finish.
    virtual void destroy() = 0;

    // Whether run may be called from several threads at once. A wrapped runner may be, although it answers false.
    virtual bool isThreadSafe() { return false; }

protected:
    ~Runner() = default;
};

// Records a network, operation by operation, and builds a runner from it. One thread at a time.
//
// Every operation returns the tensor that it makes, of the stated shape. If an input is null or belongs to another
// builder, it returns null, so that operations can be chained without checks; build then throws. Below, x is
// [n, c, h, w], divisions truncate, and division by 0 gives 0. A window larger than its padded input, or a slice whose
// end is not above its start, can make an extent 0 or negative: such a layer computes and writes nothing, and the other
// layers run. If a layer would access memory outside its tensors, for example because the channels disagree with the
// weights, build throws std::invalid_argument. An impossible graph, such as a concat without inputs, ends the process
// with status 1 and a message such as "inputs empty" on standard error. Every method may throw std::bad_alloc; an
// operation that does has recorded nothing.
class RunnerBuilder {
public:
    // The next input of the network; Runner::run takes inputs in the order of these calls.
    virtual TensorX* input(TensorShape shape) = 0;

    // A constant. The data is copied; the host may free it after the call.
    virtual TensorX* constTensor(Tensor* tensor) = 0;

    // y[o, oh, ow] = bias[o] + sum over i, kh, kw of x[i, oh * stride.h - top + kh * dilation.h, ...] * weight[o, i,
    // kh, kw], zeros outside x; c must be groups * inChannels. Result [n, groups * outChannels, (h + top + bottom -
    // ((kernelH - 1) * dilation.h + 1)) / stride.h + 1, w likewise].
    virtual TensorX* convolve(TensorX* x, Padding padding, DimsHW stride, DimsHW dilation, Weights weights) = 0;

    // Puts zeros around every plane. Result [n, c, top + h + bottom, left + w + right]. Amounts must not be negative.
    virtual TensorX* pad(TensorX* x, Padding padding) = 0;

    // Dimension i of the result is dimension perm.axes[i] of x.
    virtual TensorX* transpose(TensorX* x, Perm perm) = 0;

    // Result: x with (end - start) / step elements along the axis; dims as x has. Nothing is written unless start <
    // end.
    virtual TensorX* slice(TensorX* x, SlicePos pos) = 0;

    // y = x * weight^T + bias over the c channels (h and w are expected to be 1). Each group takes its share of the
    // channels, but all groups use the same weights and bias. Result [n, groups * outChannels], dims 1.
    virtual TensorX* fullConnect(TensorX* x, Weights weights) = 0;

    // y = scale[c] * (x - mean[c]) / sqrt(epsilon + variance[c]) + bias[c]. Vectors of at least c floats, which are
    // copied. Result as x.
    virtual TensorX* batchNormalize(TensorX* x, Vector scale, Vector bias, Vector mean, Vector variance,
                                    float epsilon) = 0;

    // Maximum or average of the values of x in each window; padding adds no values.
    // Result [n, c, (top + h + bottom - kernel.h) / stride.h + 1, w likewise].
    virtual TensorX* maxPool(TensorX* x, DimsHW kernel, Padding padding, DimsHW stride) = 0;
    virtual TensorX* avgPool(TensorX* x, DimsHW kernel, Padding padding, DimsHW stride) = 0;

    // y = x < 0 ? 0 : x. Result as x, and so for every activation below.
    virtual TensorX* relu(TensorX* x) = 0;

    // y = exp(x - m) / sum of exp(x - m) along the axis c, h or w, where m is the maximum along it. Result as x. With
    // another axis the layer prints a line to standard error and writes nothing.
    virtual TensorX* softmax(TensorX* x, Axis axis) = 0;

    // Joins count tensors along the axis n, c, h or w; their other extents must agree. The array is copied.
    virtual TensorX* concat(TensorX** inputs, int count, Axis axis) = 0;

    // Element-wise a + b, a - b and so on. Result as a. b has a's shape, or an extent of 1 at c, h or w, along which it
    // is broadcast. The batch is not broadcast. Elements that b does not have count as 0.
    virtual TensorX* add(TensorX* a, TensorX* b) = 0;
    virtual TensorX* sub(TensorX* a, TensorX* b) = 0;

    // y = 1 / (exp(-x) + 1)
    virtual TensorX* sigmoid(TensorX* x) = 0;

    // The same elements with another shape. With TensorLayout::nhwc they are reordered to channel-last first. With nchw
    // nothing is ever copied: the result uses x's memory, so x must have no other use and must not be a constant.
    virtual TensorX* reshape(TensorX* x, TensorShape shape, TensorLayout layout) = 0;

    virtual TensorX* multiply(TensorX* a, TensorX* b) = 0;  // see add

    // y = e^x
    virtual TensorX* exp(TensorX* x) = 0;

    virtual TensorX* divide(TensorX* a, TensorX* b) = 0;  // see add

    // Reduces x to `shape`: an extent of 1 is reduced, any other must be x's. The batch is never reduced.
    virtual TensorX* reduce(TensorX* x, TensorShape shape, BasicOp op) = 0;

    // y = x / sqrt(sum over c of x^2) at every sample, row and column; NaN where all channels are 0. Result as x.
    virtual TensorX* l2normalize(TensorX* x) = 0;

    // y = x < min ? min : x > max ? max : x
    virtual TensorX* clip(TensorX* x, float min, float max) = 0;

    // One LSTM layer over [n, 1, T, I]: T time steps of I = weights.inputSize features. x may be wider than I; its time
    // steps are still read I floats apart, as if x were [n, 1, T, I]. Result [n, 1, T, numDirections * hiddenSize].
    virtual TensorX* lstm(TensorX* x, LstmWeights weights) = 0;

    // y = alpha * x + beta (rounded once), limited to [0, 1]
    virtual TensorX* hardSigmoid(TensorX* x, float alpha, float beta) = 0;

    // y = a > b ? a : b; broadcast as add does.
    virtual TensorX* max(TensorX* a, TensorX* b) = 0;

    // y = (x - mean) * scale[c] / sqrt(variance + epsilon) + bias[c], with mean and variance of each plane; the first
    // form has scale 1 and bias 0. Vectors of at least c floats, which are copied. Result as x.
    virtual TensorX* instanceNormalization(TensorX* x, float epsilon) = 0;
    virtual TensorX* instanceNormalization(TensorX* x, Vector scale, Vector bias, float epsilon) = 0;

    // Scales every plane to shape.h x shape.w. A mode that is neither linear nor nearest can be built, but running it
    // prints "not suppot yet" on standard output and ends the process with status 0.
    virtual TensorX* resize(TensorX* x, TensorShape shape, ResizeMode mode, ResizeTransMode transMode) = 0;

    // y = |x|
    virtual TensorX* abs(TensorX* x) = 0;

    // y = x < 0 ? x * alpha : x
    virtual TensorX* leakyRelu(TensorX* x, float alpha) = 0;

    // y = tanh(x)
    virtual TensorX* tanh(TensorX* x) = 0;

    // Transposed convolution: every x[i, ih, iw] * weight[i, o, kh, kw] is added at row ih * stride.h - top + kh,
    // column likewise; then the bias. groups must be 1. Result [n, outChannels, (kernelH - 1) * dilation.h + 1 + (h -
    // 1) * stride.h - top - bottom, w likewise]; dilation affects the shape only.
    virtual TensorX* deConvolve(TensorX* x, Padding padding, DimsHW stride, DimsHW dilation, Weights weights) = 0;

    // y = x < 0 ? x * slopes[c] : x, with count slopes, at least c, which are copied. For a batch above 1 the slope's
    // index is the element's place in the whole tensor divided by n * h * w.
    virtual TensorX* prelu(TensorX* x, float* slopes, int count) = 0;

    // Matrix product [h, k] * [k, w] of every plane. b has a's n and c; result [a.n, a.c, a.h, b.w].
    virtual TensorX* matMul(TensorX* a, TensorX* b) = 0;

    // All five fields of x's shape; zeros for null and for a tensor of another builder.
    virtual TensorShape shapeOf(TensorX* x) = 0;

    // Builds the runner; may be called once. outputs may be any tensors of this builder, inputs and constants too; the
    // array may be null when count is 0. The caller owns the runner, which does not need the builder or the weight
    // arrays any more. Throws std::invalid_argument when an output is null, when an output or the input of an operation
    // belongs to another builder, or when an operation cannot run safely, and std::logic_error at the second call.
    virtual Runner* build(TensorX** outputs, int count) = 0;

    // Releases the builder, its tensors and what was recorded.
    virtual void destroy() = 0;

protected:
    ~RunnerBuilder() = default;
};

// Reads model files: makes one call of the builder for every record, then calls build. Use a reader for one model and
// in one thread: it keeps the tensors of its first load, and the builder of a second load rejects them. These failures
// give no message: a batch below 1, a null builder, path or data, an empty file, a file that ends within a record.
class ModelReader {
public:
    // Returns a runner of the model in the file at path, for inputs of batch samples, or null.
    // The caller owns the builder. If the load fails, the operations recorded so far stay in it.
    virtual Runner* readFromFile(RunnerBuilder* builder, int batch, const char* path) = 0;

    // The same from size bytes at data, which must be writable: they change during the call and are restored before it
    // returns, so two loads must not use one buffer at the same time. They are not restored if it throws
    // std::bad_array_new_length, for an impossible count, or std::bad_alloc.
    virtual Runner* readFromMemory(RunnerBuilder* builder, int batch, void* data, int size) = 0;

    // Releases the reader and the weight arrays that it passed to builders, so call it after build.
    virtual void destroy() = 0;

protected:
    ~ModelReader() = default;
};

}  // namespace nolk

// All these functions are thread-safe. On x86-64 the library needs a processor with AVX2 and FMA unless it is built
// otherwise. On a processor without them, the functions that return an object report this error and return null.
//
// implCfg names an implementation, then a colon, then its settings: "NolkRaw:num_threads=4,gemm_thresh=100000". Null,
// "" and a missing name mean the built-in implementation, NolkRaw. Any other name X loads libX.so from the loader's
// path or this library's folder. That library must export nolk_new_runner_builder_impl(const char* cfg) and
// nolk_new_runner; both get the settings only. Settings of NolkRaw: num_threads (default 1), the threads of one matrix
// product; gemm_thresh (default 2000000), the number of multiply-adds from which a product is split between threads.
extern "C" {

// The version of the interface, "opencv_4.8.0". A static string. NOLK_VERSION_* are the version of the library.
NOLK_API const char* nolk_version();

// A new model reader. Null only on a processor that this build does not support. Throws std::bad_alloc.
NOLK_API nolk::ModelReader* nolk_new_model_reader();

// A new builder, or null when the implementation cannot be loaded. Throws std::invalid_argument or std::out_of_range,
// with the text "stol", for a setting that is not a number, and std::bad_alloc.
NOLK_API nolk::RunnerBuilder* nolk_new_runner_builder(const char* implCfg);

// Returns a runner that many threads may call. It splits their tensors into single items and runs these by `runner`,
// which must have been built for a batch of batchSize.
//   batchSize 1     Items run one after the other. A call returns true when all of its items ran, or it has none.
//   batchSize > 1   A worker thread gathers the items of concurrent callers into runs of up to batchSize items. A call
//                   returns the result of the run with its first item, and false without a message if it has no items.
//                   The first run that succeeds fixes the number of elements in each tensor of an item. Later items may
//                   have other shapes or dims with as many elements; calls with other numbers return false.
// The first input tells the number of items; the other tensors must have as many. The new runner owns `runner` and
// destroys it with itself. Returns null for a null runner, for a batchSize below 1, or when there is no memory or no
// thread can be started; the caller then still owns `runner`. Throws nothing.
NOLK_API nolk::Runner* nolk_wrap_batch_runner(nolk::Runner* runner, int batchSize);

// Returns a runner for inputs of `batch` samples from size bytes of a model file, or null. Bytes that are not in nolk's
// format are passed to the implementation named by implCfg; without a name this fails, because NolkRaw has no other
// format. The bytes must be writable, and no other load may use them at the same time, as for
// ModelReader::readFromMemory. Throws the exceptions of that function and of nolk_new_runner_builder.
NOLK_API nolk::Runner* nolk_new_runner(const char* implCfg, void* data, int size, int batch);

// Queues a message; the newest 100 are kept. A null or empty message is not queued, nor is one for which there is no
// memory. Throws nothing.
NOLK_API void nolk_push_error_message(const char* msg);

// Moves the oldest message to buf, cut to size - 1 characters, or "" when there is none. The process has one queue.
NOLK_API void nolk_pop_error_message(char* buf, int size);
}

// Other implementations are compiled against these structures and virtual functions, so their layout must not change.
static_assert(sizeof(nolk::TensorShape) == 20 && offsetof(nolk::TensorShape, c) == 4 &&
                  offsetof(nolk::TensorShape, h) == 8 && offsetof(nolk::TensorShape, w) == 12 &&
                  offsetof(nolk::TensorShape, dims) == 16,
              "layout of TensorShape");
static_assert(sizeof(nolk::Tensor) == 32 && offsetof(nolk::Tensor, data) == 24, "layout of Tensor");
static_assert(sizeof(nolk::DimsHW) == 8 && offsetof(nolk::DimsHW, w) == 4, "layout of DimsHW");
static_assert(sizeof(nolk::Padding) == 16 && offsetof(nolk::Padding, bottom) == 4 &&
                  offsetof(nolk::Padding, left) == 8 && offsetof(nolk::Padding, right) == 12,
              "layout of Padding");
static_assert(sizeof(nolk::Weights) == 40 && offsetof(nolk::Weights, outChannels) == 4 &&
                  offsetof(nolk::Weights, inChannels) == 8 && offsetof(nolk::Weights, kernelH) == 12 &&
                  offsetof(nolk::Weights, kernelW) == 16 && offsetof(nolk::Weights, shared) == 20 &&
                  offsetof(nolk::Weights, weight) == 24 && offsetof(nolk::Weights, bias) == 32,
              "layout of Weights");
static_assert(sizeof(nolk::Vector) == 16 && offsetof(nolk::Vector, data) == 8, "layout of Vector");
static_assert(sizeof(nolk::LstmWeights) == 48 && offsetof(nolk::LstmWeights, numDirections) == 4 &&
                  offsetof(nolk::LstmWeights, inputSize) == 8 && offsetof(nolk::LstmWeights, hiddenSize) == 12 &&
                  offsetof(nolk::LstmWeights, inputWeights) == 16 &&
                  offsetof(nolk::LstmWeights, recurrentWeights) == 24 && offsetof(nolk::LstmWeights, bias) == 32 &&
                  offsetof(nolk::LstmWeights, splitBias) == 40,
              "layout of LstmWeights");
static_assert(sizeof(nolk::SlicePos) == 16 && offsetof(nolk::SlicePos, start) == 4 &&
                  offsetof(nolk::SlicePos, end) == 8 && offsetof(nolk::SlicePos, step) == 12,
              "layout of SlicePos");
static_assert(sizeof(nolk::Perm) == 16, "layout of Perm");
static_assert(sizeof(nolk::Runner) == sizeof(void*) && sizeof(nolk::RunnerBuilder) == sizeof(void*) &&
                  sizeof(nolk::ModelReader) == sizeof(void*),
              "the interfaces hold nothing but their slots");

#endif
