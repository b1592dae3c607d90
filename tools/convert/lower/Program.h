// The operations of the file that is being made, recorded before they are written: what is not used is left out, equal
// operations are recorded once, and what a file must not contain is mended.
//   Program program;
//   int x = program.input({1, 3, 8, 8, 3});
//   int y = program.relu(program.view(x, {1, 1, 24, 8, 3}));
//   std::vector<unsigned char> file = program.write({y}, {});
// Steps go by their number. All shapes are those of one sample, n being 1. Arrays are shared with whoever brings them
// and freed when they have been written, so a program is written once.
#pragma once

#include <nolk.h>
#include <nolk_model.h>

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "convert/graph/FloatBudget.h"

namespace convert {

using Floats = std::shared_ptr<const std::vector<float>>;

// A kernel or bias may be null: there is none.
struct KernelWeights {
    int groups = 1;
    int outChannels = 0;  // of one group
    int inChannels = 0;   // of one group
    int kernelH = 1;
    int kernelW = 1;
    Floats weight;
    Floats bias;
};

struct LstmArrays {
    nolk::Direction direction = nolk::Direction::forward;
    int inputSize = 0;
    int hiddenSize = 0;
    Floats inputWeights;
    Floats recurrentWeights;
    Floats bias;  // null for none
};

// The node that a step is recorded for.
struct Origin {
    std::string node;
    std::string type;
};

// An operation that the file has no form for, or too many of them.
struct Hindrance {
    Origin origin;                // empty where it is none of a single node
    std::string why;              // the operation and the field
    bool hasWidePadding = false;  // of a window: more than a file's byte holds
};

struct NotWritable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Program {
public:
    explicit Program(FloatBudget budget = FloatBudget()) : budget_(budget) {}

    const nolk::TensorShape& shapeOf(int step) const { return steps_[static_cast<std::size_t>(step)].shape; }
    // The node for which the following steps are recorded.
    void setOrigin(Origin origin) { origin_ = std::move(origin); }
    // Before arrays of that many floats are made; those of recorded steps are counted. Throws OverBudget.
    void requireFloats(std::int64_t count) const { budget_.require(count); }

    int input(nolk::TensorShape shape);
    int constant(nolk::TensorShape shape, const Floats& values);  // infinite ones become the largest finite ones
    int scalar(float value);                                      // [1, 1, 1]

    // The same elements under another shape; x itself when it has that shape.
    int view(int x, nolk::TensorShape shape);

    int relu(int x);
    int sigmoid(int x);
    int exp(int x);
    int abs(int x);
    int tanh(int x);
    int l2normalize(int x);
    int clip(int x, float min, float max);
    int leakyRelu(int x, float alpha);
    int hardSigmoid(int x, float alpha, float beta);
    int instanceNormalization(int x, float epsilon);
    int instanceNormalization(int x, const Floats& scale, const Floats& bias, float epsilon);
    int batchNormalize(int x, const Floats& scale, const Floats& bias, const Floats& mean, const Floats& variance,
                       float epsilon);

    // b has a's extents, or 1 where it is repeated.
    int add(int a, int b);
    int sub(int a, int b);
    int multiply(int a, int b);
    int divide(int a, int b);
    int max(int a, int b);
    int times(int x, float factor);  // x itself for 1
    int plus(int x, float addend);   // x itself for 0

    int convolve(int x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                 const KernelWeights& weights);
    int deConvolve(int x, nolk::Padding padding, nolk::DimsHW stride, const KernelWeights& weights);
    int fullConnect(int x, const KernelWeights& weights);
    int matMul(int a, int b);
    int maxPool(int x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride);
    int avgPool(int x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride);
    int pad(int x, nolk::Padding padding);
    int transpose(int x, nolk::Perm perm);
    int slice(int x, nolk::Axis axis, int start, int count, int step = 1);  // any step; ends need not fit
    int concat(std::vector<int> parts, nolk::Axis axis);
    int softmax(int x, nolk::Axis axis);
    int reduce(int x, nolk::TensorShape shape, nolk::BasicOp op);
    int resize(int x, int h, int w, nolk::ResizeMode mode, nolk::ResizeTransMode transMode);
    int lstm(int x, const LstmArrays& weights);
    int copy(int x);  // a new one each time

    // For each step whether one of these outputs needs it.
    std::vector<char> usedSteps(const std::vector<int>& outputs) const;

    // Throws NotWritable at the first operation that the file has no form for, and std::logic_error the second time.
    std::vector<unsigned char> write(const std::vector<int>& outputs, const nolk::ModelFileOptions& options);

    // All that keeps the steps before these ends from being written, also after write has thrown.
    std::vector<Hindrance> hindrances(const std::vector<int>& ends, const nolk::ModelFileOptions& options) const;

    // Names of the operations that were written, in their order.
    const std::vector<std::string>& written() const { return written_; }

private:
    using Record = std::function<nolk::TensorX*(nolk::RunnerBuilder&, const std::vector<nolk::TensorX*>&)>;
    struct Step {
        std::string name;
        std::string key;  // equal for steps that make the same tensor
        std::vector<int> inputs;
        nolk::TensorShape shape;
        Record record;
        Origin origin;
        int groups = 1;         // of a convolution
        bool mixes = false;     // of a convolution: several channels in one group
        nolk::Padding padding;  // of a convolution or a max pooling
    };

    // floats: of the arrays that the record holds
    int append(std::string name, const std::string& arguments, std::vector<int> inputs, nolk::TensorShape shape,
               Record record, std::int64_t floats = 0);
    int unary(const char* name, const std::string& arguments, int x,
              std::function<nolk::TensorX*(nolk::RunnerBuilder&, nolk::TensorX*)> call, std::int64_t floats = 0);
    int binary(const char* name, int a, int b,
               nolk::TensorX* (nolk::RunnerBuilder::*call)(nolk::TensorX*, nolk::TensorX*));
    int reducedInSteps(int x, nolk::TensorShape shape, nolk::BasicOp op);
    int reducedAtOnce(int x, nolk::TensorShape shape, nolk::BasicOp op);
    std::string hindranceOf(const Step& step, const nolk::ModelFileOptions& options) const;
    int joined(const std::vector<int>& parts, nolk::Axis axis);
    Step& at(int step) { return steps_[static_cast<std::size_t>(step)]; }
    void mend(const std::vector<int>& outputs);

    std::vector<Step> steps_;
    std::map<std::string, int> places_;  // by key
    Origin origin_;
    FloatBudget budget_;
    std::vector<std::string> written_;
};

int extentAt(const nolk::TensorShape& shape, nolk::Axis axis);
nolk::TensorShape withExtent(nolk::TensorShape shape, nolk::Axis axis, int extent);

}  // namespace convert
