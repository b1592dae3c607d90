// nolk_model inspects, checks, loads and writes model files. It is a separate library, libnolk_model.so.
//
//   const nolk::ModelInfo info = nolk::inspectModel(bytes, size);      // info.operations[info.inputs[0]].output
//   for (const nolk::ModelFinding& finding : nolk::checkModel(bytes, size).findings) use(finding.text);
//   nolk::Owned<nolk::Runner> runner = nolk::loadModel(bytes, size, 1, "NolkRaw", {1 << 30, 5'000'000'000});
//   nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter();    // a nolk::RunnerBuilder
//
// The bytes of a file are only read, so several threads may use them at once. These functions print nothing; another
// implementation, or loading it, may print. For any bytes, even damaged ones, a function returns or throws ModelError,
// std::bad_alloc or an exception that its comment names. docs/model-format.md describes the model file.
#ifndef NOLK_MODEL_H
#define NOLK_MODEL_H

#include <nolk.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace nolk {

// Releases an object of the library.
struct Destroyer {
    template <typename Object>
    void operator()(Object* object) const {
        object->destroy();
    }
};
template <typename Object>
using Owned = std::unique_ptr<Object, Destroyer>;

// Thrown for a file that cannot be used; what() is one line that says where and why: "record 7 (convolve) at byte 1234:
// ...".
class NOLK_API ModelError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~ModelError() override;
};

// The memory and the computation that a caller allows for a network.
struct ModelLimits {
    static constexpr std::int64_t kNone = std::numeric_limits<std::int64_t>::max();

    std::int64_t memoryBytes = kNone;  // see ModelCost::memoryBytes
    // See ModelCost::steps. A network that is built only to be looked at needs no more than the steps of loading.
    std::int64_t multiplyAdds = kNone;
};

// What a network needs, computed from its records before anything is built. Counts stop at 2^63 - 1.
struct ModelCost {
    std::int64_t tensorBytes = 0;   // of all tensors that have to exist at the same time
    std::int64_t weightBytes = 0;   // of weights and constants in memory
    std::int64_t scratchBytes = 0;  // of the operation that needs most
    std::int64_t multiplyAdds = 0;  // of one run, see ModelOperation
    // multiplyAdds, one for each element that is read, written or copied otherwise, and one for each weight and each
    // output channel that loading changes, to fold a batch normalisation into it.
    std::int64_t steps = 0;

    // tensorBytes + weightBytes + scratchBytes: the memory that the built-in implementation uses during a run, without
    // gaps in its arena.
    NOLK_API std::int64_t memoryBytes() const;
};

// Thrown for a file whose network would exceed a limit; what() gives the numbers.
class NOLK_API LimitExceeded final : public ModelError {
public:
    LimitExceeded(const std::string& text, const ModelCost& networkCost) : ModelError(text), cost(networkCost) {}
    ~LimitExceeded() override;

    ModelCost cost;
};

// A named setting of an operation: {"stride", {2, 2}}, {"epsilon", {1e-05}}. Structures give their members in the order
// of nolk.h, weights their extents, vectors their count, enumerations their number.
struct ModelParameter {
    std::string name;
    std::vector<double> values;
};

// A record that makes a tensor: an operation, an input or a constant.
struct ModelOperation {
    int record = 0;       // number in the file, from 1
    int code = 0;         // docs/model-format.md lists them
    std::string name;     // the method of nolk::RunnerBuilder: "convolve"
    std::string details;  // parameters for people: "3x3, stride 2, pad 1"
    std::vector<ModelParameter> parameters;
    int id = 0;                          // of the tensor that the record makes
    std::int64_t offset = 0;             // of the record in the file
    std::int64_t bytes = 0;              // of the record
    std::vector<int> inputs;             // indices in ModelInfo::operations; -1 for an undefined id
    bool isMade = false;                 // whether it makes a tensor; false if an input is missing
    TensorShape output;                  // zeros when it makes none
    std::int64_t parameterCount = 0;     // floats of weights, vectors, and a constant (for every sample of the batch)
    std::int64_t weightBytesInFile = 0;  // bytes of these floats in the file
    // Products that a convolution, deconvolution, full connection, matrix product or LSTM sums up, including those with
    // padding, without biases; 0 for other operations.
    std::int64_t multiplyAdds = 0;
    int layer = -1;                   // index in ModelInfo::layers; -1 if it has none, or nothing was built
    bool isFused = false;             // fusion has absorbed it: `layer` belongs to another operation
    std::int64_t parametersKept = 0;  // floats that its layer has after fusion
};

// A layer of the built-in implementation's runner.
struct ModelLayer {
    std::string kind;    // "conv"
    int operation = -1;  // index in ModelInfo::operations
    TensorShape output;
};

// A range of the arena that holds one tensor, or several that share it. In step 0 the inputs are copied in, in step i
// layer i - 1 runs, and in the step after the last layer the outputs are copied out.
struct ArenaRange {
    std::int64_t offsetBytes = 0;
    std::int64_t sizeBytes = 0;
    int firstStep = 0;  // both inclusive
    int lastStep = 0;
    std::vector<int> operations;  // the operations whose tensors use it, in that order
};

struct ModelTotals {
    std::int64_t operations = 0;  // inputs and constants not counted
    std::int64_t parameters = 0;
    std::int64_t weightBytes = 0;  // in memory
};

// An entry of the file's head info.
struct HeadInfo {
    int key = 0;                      // any 16-bit number but 0
    std::vector<unsigned char> data;  // at most 32767 bytes
};

struct ModelInfo {
    int version = 0;
    std::int64_t fileBytes = 0;
    int recordCount = 0;
    std::vector<HeadInfo> headInfo;
    std::vector<ModelOperation> operations;  // in the order of the file, inputs and constants too
    std::vector<int> inputs;                 // indices in operations, in the order that run expects
    std::vector<int> outputs;                // likewise; an index may occur twice
    // Their names, in the same order, as the head info gives them; empty where it does not name each of them.
    std::vector<std::string> inputNames;
    std::vector<std::string> outputNames;
    ModelCost cost;
    ModelTotals beforeFusion;

    // The network as the built-in implementation builds it. Empty, with a remark, if this was not requested or would
    // exceed the limits.
    bool isBuilt = false;
    ModelTotals afterFusion;
    std::vector<ModelLayer> layers;
    std::vector<ArenaRange> arenaRanges;  // in the order of their first steps
    std::int64_t arenaBytes = -1;         // -1: not known, here and below
    std::int64_t scratchBytes = -1;       // used by one run
    std::int64_t peakBytes = -1;          // largest resident set of this process so far, after one run
    std::string remark;                   // why something was not built or not run; empty when all was
};

enum class InspectionDepth {
    records,  // read the file only
    build,    // build the network too
    run       // and run it once, on zeros
};

struct InspectionOptions {
    int batch = 1;  // number of samples for which shapes, costs and memory are computed
    InspectionDepth depth = InspectionDepth::run;
    ModelLimits limits;
};

// What is in a model file. Throws ModelError for a file that cannot be loaded.
NOLK_API ModelInfo inspectModel(const void* data, std::size_t size, const InspectionOptions& options = {});

enum class Severity {
    warning,  // probably a mistake, but the network can run
    error     // loading fails, or the result is undefined
};

struct ModelFinding {
    Severity severity = Severity::warning;
    int record = 0;           // from 1; 0 for the rest of the file
    std::string operation;    // "convolve"; for the rest of the file its part: "head", "checksum", "network"
    std::int64_t offset = 0;  // in the file
    std::string text;
};

// "record 7 (convolve) at byte 1234: error: text"
NOLK_API std::string describe(const ModelFinding& finding);

struct ModelCheck {
    // In the order of their offsets: the first 200 errors, the first 200 warnings, and at the end of the file one
    // finding for each of the two that says how many more there are.
    std::vector<ModelFinding> findings;
    int version = 0;       // 0 when the file has none
    int recordCount = -1;  // -1 when it is not known
    std::string remark;    // why the network was not built although there are no errors; else empty
};

// Finds everything that is wrong or suspicious in a model file. Without errors, and within the limits, it also builds
// the network as loading would.
NOLK_API ModelCheck checkModel(const void* data, std::size_t size, const ModelLimits& limits = {});

// Returns a runner for a model file, whose inputs have `batch` samples. implementation is a name with settings as for
// nolk_new_runner_builder; null means the built-in one. Before it builds anything, it rejects operations that would end
// the process or leave a part of their result undefined, and arrays that cannot be read, and compares the cost with the
// limits. The cost is that of the built-in implementation. Besides, NolkRaw compares its planned arena, gaps included,
// and NolkFast all that its runner will take, before they write to it.
// Throws LimitExceeded, ModelError for any other file that cannot be run, and what nolk_new_runner_builder throws.
NOLK_API Owned<Runner> loadModel(const void* data, std::size_t size, int batch, const char* implementation = nullptr,
                                 const ModelLimits& limits = {});

// The format of a model file.
struct ModelFileOptions {
    int version = 4;                 // 1 to 4
    bool lossy = false;              // version 4: replace floats by the nearest of 256 values if that is smaller
    std::vector<HeadInfo> headInfo;  // from version 2 on; readers skip it
};

// A builder that writes a model file instead of building a runner: any code that uses a builder can save its network.
//   nolk::TensorX* y = writer->relu(writer->input({1, 3, 8, 8, 3}));
//   writer->build(&y, 1);                                 // returns null: there is no runner
//   std::vector<unsigned char> file = writer->bytes();
// Other builders cannot use the writer's tensors. Each call copies its arrays.
//
// A file describes a single sample. All shapes that are passed (input, constTensor, reshape, reduce, resize) must have
// the same n, which is not written: a reader uses its own batch. Of a constant one sample is written, so all of its
// samples must be equal.
//
// If the file cannot represent an argument, the call throws std::out_of_range with the operation and the field, and the
// writer does not change. A null array that should have values throws std::invalid_argument. Some arguments are written
// in another form with the same meaning: a convolution's shared weights (repeated for each group), a negative axis of
// concat, a bias of an LSTM with splitBias false (left out, because it is not used). build returns null, and so does a
// nolk::ModelReader that uses the writer as its builder. build throws std::invalid_argument for a null output and
// std::logic_error at the second call. In version 4, floats are written as a table of 256 values and indices if that is
// exact and smaller, or, with ModelFileOptions::lossy, if it is smaller.
class ModelWriter : public RunnerBuilder {
public:
    // The file; empty before build.
    virtual const std::vector<unsigned char>& bytes() const = 0;

protected:
    ~ModelWriter() = default;
};

// Throws std::out_of_range for impossible options.
NOLK_API Owned<ModelWriter> newModelWriter(const ModelFileOptions& options = {});

}  // namespace nolk

#endif
