// Computes a fixed set of networks, one for each operation and some larger ones, and writes what came out; compares
// what different builds of the library, for different processors, have written:
//   answers > a.txt
//   answers x86-64-v2 > b.txt
//   answers --compare a.txt b.txt ...
// The second has matrix products for that instruction set, and writes nothing if the processor lacks it. A line is a
// network's name, "bits" or the depth of its sums, a hash, and the floats where there is a depth.
//
// Networks of fixed arithmetic must give the same bits everywhere. Those with a matrix product, whose order of sums is
// the processor's, or with exponentials of the C library, must agree to kTolerance times the square root of the depth,
// relative to the largest value of the tensor: as far as roundings that do not favour a direction add up.
#include <nolk.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "math/chooseProduct.h"
#include "support/Net.h"
#include "support/OwnedWeights.h"
#include "support/specials.h"

namespace {

using nolk::TensorX;
using Floats = std::vector<float>;

constexpr double kTolerance = 1e-6;

// FNV-1a over the bytes, little-endian. All NaNs count as one: which of them comes out is the processor's choice.
std::uint64_t hashOf(const Floats& values) {
    std::uint64_t hash = 14695981039346656037u;
    for (const float v : values) {
        std::uint32_t bits = 0x7FC00000;
        if (!std::isnan(v)) std::memcpy(&bits, &v, sizeof bits);
        for (int shift = 0; shift < 32; shift += 8) hash = (hash ^ (bits >> shift & 0xFF)) * 1099511628211u;
    }
    return hash;
}

// depth: 0 for fixed arithmetic, else the number of terms in the longest sum.
void write(const char* name, int depth, const Floats& values) {
    std::printf("%s %s %016" PRIx64, name, depth == 0 ? "bits" : std::to_string(depth).c_str(), hashOf(values));
    if (depth > 0)
        for (const float v : values) std::printf(" %.9g", static_cast<double>(v));
    std::printf("\n");
}

using Recording = std::function<TensorX*(Net&, TensorX*)>;

// One operation on a tensor [2, 4, 9, 21] with NaN, infinities, signed zeros and huge values in it.
void element(const char* name, const Recording& record) {
    const nolk::TensorShape shape{2, 4, 9, 21, 3};
    Net net;
    TensorX* const x = net.input(shape, valuesWithSpecials(1, 2 * 4 * 9 * 21));
    write(name, 0, net.run({record(net, x)}).at(0));
}

std::size_t elements(const nolk::TensorShape& s) {
    return static_cast<std::size_t>(s.n) * static_cast<std::size_t>(s.c) * static_cast<std::size_t>(s.h) *
           static_cast<std::size_t>(s.w);
}

void network(const std::string& name, int depth, nolk::TensorShape shape, const Floats& input,
             const Recording& record) {
    Net net;
    TensorX* const x = net.input(shape, input);
    write(name.c_str(), depth, net.run({record(net, x)}).at(0));
}

// Results that are only close, on ordinary values.
void close(const char* name, int depth, nolk::TensorShape shape, const Recording& record) {
    network(name, depth, shape, Values(2).reals(elements(shape)), record);
}

// Results that are fixed, on ordinary values and on what element has.
void fixed(const std::string& name, const Recording& record) {
    const nolk::TensorShape shape{2, 6, 15, 37, 3};
    network(name, 0, shape, Values(2).reals(elements(shape)), record);
    network(name + "-specials", 0, shape, valuesWithSpecials(2, elements(shape)), record);
}

TensorX* other(Net& net) { return net.constant({2, 4, 9, 21, 3}, valuesWithSpecials(3, 2 * 4 * 9 * 21)); }

void writeElementwise() {
    element("relu", [](Net& n, TensorX* x) { return n->relu(x); });
    element("abs", [](Net& n, TensorX* x) { return n->abs(x); });
    element("clip", [](Net& n, TensorX* x) { return n->clip(x, -0.5f, 0.25f); });
    element("leaky-relu", [](Net& n, TensorX* x) { return n->leakyRelu(x, 0.1f); });
    element("hard-sigmoid", [](Net& n, TensorX* x) { return n->hardSigmoid(x, 0.2f, 0.3f); });
    element("add", [](Net& n, TensorX* x) { return n->add(x, other(n)); });
    element("sub", [](Net& n, TensorX* x) { return n->sub(x, other(n)); });
    element("multiply", [](Net& n, TensorX* x) { return n->multiply(x, other(n)); });
    element("divide", [](Net& n, TensorX* x) { return n->divide(x, other(n)); });
    element("max", [](Net& n, TensorX* x) { return n->max(x, other(n)); });
    Floats slopes = Values(4).reals(4);
    element("prelu", [&](Net& n, TensorX* x) { return n->prelu(x, slopes.data(), 4); });
    Floats v = Values(5).reals(16);
    for (std::size_t i = 12; i < 16; ++i) v[i] = std::fabs(v[i]);
    element("batch-normalize", [&](Net& n, TensorX* x) {
        return n->batchNormalize(x, {4, &v[0]}, {4, &v[4]}, {4, &v[8]}, {4, &v[12]}, 0.001f);
    });
}

void writeMoving() {
    element("pad", [](Net& n, TensorX* x) { return n->pad(x, {1, 2, 3, 0}); });
    element("transpose", [](Net& n, TensorX* x) { return n->transpose(x, {{0, 2, 3, 1}}); });
    element("slice", [](Net& n, TensorX* x) { return n->slice(x, {-1, 1, 20, 3}); });
    element("reshape", [](Net& n, TensorX* x) { return n->reshape(x, {2, 756, 1, 1, 1}, nolk::TensorLayout::nhwc); });
    element("concat", [](Net& n, TensorX* x) {
        TensorX* parts[] = {x, other(n), x};
        return n->concat(parts, 3, nolk::Axis::c);
    });
    element("max-pool", [](Net& n, TensorX* x) { return n->maxPool(x, {3, 2}, {1, 0, 1, 1}, {2, 2}); });
}

void writeFixedSums() {
    fixed("avg-pool", [](Net& n, TensorX* x) { return n->avgPool(x, {3, 3}, {1, 1, 1, 1}, {2, 1}); });
    fixed("l2-normalize", [](Net& n, TensorX* x) { return n->l2normalize(x); });
    fixed("instance-normalization", [](Net& n, TensorX* x) { return n->instanceNormalization(x, 0.01f); });
    Floats v = Values(6).reals(12);
    fixed("instance-normalization-scaled", [&](Net& n, TensorX* x) {
        return n->instanceNormalization(x, {6, &v[0]}, {6, &v[6]}, 0.01f);
    });
    fixed("mat-mul", [](Net& n, TensorX* x) { return n->matMul(x, n->transpose(x, {{0, 1, 3, 2}})); });
    Values random(7);
    OwnedWeights weights(1, 5, 6, 3, 2, true, random), square(1, 4, 6, 2, 2, false, random);
    fixed("deconvolution", [&](Net& n, TensorX* x) {
        return n->deConvolve(x, {1, 0, 1, 0}, {2, 3}, {1, 1}, weights.get());
    });
    fixed("deconvolution-2x2", [&](Net& n, TensorX* x) {
        return n->deConvolve(x, {0, 0, 0, 0}, {2, 2}, {1, 1}, square.get());
    });
}

void writeReductions() {
    const struct {
        const char* name;
        nolk::BasicOp op;
    } operations[] = {{"maximum", nolk::BasicOp::maximum},
                      {"mean", nolk::BasicOp::mean},
                      {"sum", nolk::BasicOp::sum},
                      {"minimum", nolk::BasicOp::minimum}};
    for (const auto& o : operations)
        for (const nolk::TensorShape to : {nolk::TensorShape{2, 6, 1, 1, 3}, {2, 1, 15, 37, 3}, {2, 6, 15, 1, 3}}) {
            const std::string axes =
                std::string(to.c == 1 ? "c" : "") + (to.h == 1 ? "h" : "") + (to.w == 1 ? "w" : "");
            fixed(std::string("reduce-") + o.name + "-" + axes,
                  [&](Net& n, TensorX* x) { return n->reduce(x, to, o.op); });
        }
}

void writeResizes() {
    const struct {
        const char* name;
        nolk::ResizeMode mode;
        nolk::ResizeTransMode trans;
    } forms[] = {{"half-pixel", nolk::ResizeMode::linear, nolk::ResizeTransMode::halfPixel},
                 {"align-corners", nolk::ResizeMode::linear, nolk::ResizeTransMode::alignCorners},
                 {"nearest", nolk::ResizeMode::nearest, nolk::ResizeTransMode::halfPixel}};
    for (const auto& form : forms)
        for (const nolk::TensorShape to : {nolk::TensorShape{2, 6, 31, 64, 3}, {2, 6, 7, 19, 3}})
            fixed(std::string("resize-") + form.name + (to.h > 15 ? "-up" : "-down"),
                  [&](Net& n, TensorX* x) { return n->resize(x, to, form.mode, form.trans); });
}

void writeProductsAndExponentials() {
    const nolk::TensorShape shape{2, 6, 9, 13, 3};
    Values random(8);
    OwnedWeights threes(1, 10, 6, 3, 3, true, random), ones(1, 8, 6, 1, 1, true, random);
    OwnedWeights grouped(3, 2, 2, 3, 2, false, random), depthwise(6, 1, 1, 3, 3, true, random);
    close("convolution-3x3", 54, shape, [&](Net& n, TensorX* x) {
        return n->convolve(x, {1, 1, 1, 1}, {1, 1}, {1, 1}, threes.get());
    });
    close("convolution-3x3-stride-2", 54, {1, 6, 9, 41, 3}, [&](Net& n, TensorX* x) {
        return n->convolve(x, {1, 1, 1, 1}, {2, 2}, {1, 1}, threes.get());
    });
    close("convolution-1x1", 6, shape, [&](Net& n, TensorX* x) {
        return n->convolve(x, {0, 0, 0, 0}, {1, 1}, {1, 1}, ones.get());
    });
    close("convolution-grouped", 12, shape, [&](Net& n, TensorX* x) {
        return n->convolve(x, {2, 1, 0, 1}, {2, 1}, {1, 2}, grouped.get());
    });
    close("convolution-depthwise", 9, shape, [&](Net& n, TensorX* x) {
        return n->convolve(x, {1, 1, 1, 1}, {1, 1}, {1, 1}, depthwise.get());
    });
    OwnedWeights dense(1, 33, 702, 1, 1, true, random, true);
    close("full-connect", 702, {2, 702, 1, 1, 1}, [&](Net& n, TensorX* x) { return n->fullConnect(x, dense.get()); });

    close("sigmoid", 1, shape, [](Net& n, TensorX* x) { return n->sigmoid(x); });
    close("exp", 1, shape, [](Net& n, TensorX* x) { return n->exp(x); });
    close("tanh", 1, shape, [](Net& n, TensorX* x) { return n->tanh(x); });
    close("softmax-c", 6, shape, [](Net& n, TensorX* x) { return n->softmax(x, nolk::Axis::c); });
    close("softmax-h", 9, shape, [](Net& n, TensorX* x) { return n->softmax(x, nolk::Axis::h); });
    close("softmax-w", 13, shape, [](Net& n, TensorX* x) { return n->softmax(x, nolk::Axis::w); });
    Floats weights = random.reals(10 * 7 * 4 * 2 + 7 * 7 * 4 * 2 + 7 * 8 * 2);
    close("lstm", 17 * 12, {2, 1, 12, 10, 3}, [&](Net& n, TensorX* x) {
        float* const f = weights.data();
        return n->lstm(x, {nolk::Direction::both, 2, 10, 7, f, f + 10 * 7 * 4 * 2, f + (10 + 7) * 7 * 4 * 2, true});
    });
}

// A chain in which rounding errors of every layer meet those of the next, with fusion in it.
void writeChain() {
    Values random(9);
    OwnedWeights first(1, 16, 6, 3, 3, true, random), second(1, 16, 16, 3, 3, false, random);
    Floats v = random.reals(64);
    for (std::size_t i = 48; i < 64; ++i) v[i] = std::fabs(v[i]) + 1.0f;
    close("residual-block", 54 + 144, {1, 6, 12, 12, 3}, [&](Net& n, TensorX* x) {
        TensorX* y = n->convolve(x, {1, 1, 1, 1}, {1, 1}, {1, 1}, first.get());
        y = n->relu(n->batchNormalize(y, {16, &v[0]}, {16, &v[16]}, {16, &v[32]}, {16, &v[48]}, 0.001f));
        return n->relu(n->add(y, n->convolve(y, {1, 1, 1, 1}, {1, 1}, {1, 1}, second.get())));
    });
}

struct Line {
    std::string name, kind, hash;
    std::vector<double> values;
};

std::vector<Line> readLines(const char* path) {
    std::ifstream file(path);
    std::vector<Line> lines;
    for (std::string text; std::getline(file, text);) {
        std::istringstream fields(text);
        Line line;
        fields >> line.name >> line.kind >> line.hash;
        for (std::string v; fields >> v;) line.values.push_back(std::strtod(v.c_str(), nullptr));
        lines.push_back(line);
    }
    if (lines.empty()) throw std::runtime_error(std::string(path) + ": no answers");
    return lines;
}

// NaN and an infinity equal themselves alone.
double difference(double a, double b) {
    if (a == b || (std::isnan(a) && std::isnan(b))) return 0;
    return std::isfinite(a) && std::isfinite(b) ? std::fabs(a - b) : INFINITY;
}

// The largest difference, as a part of what is allowed.
double distance(const Line& a, const Line& b) {
    if (a.name != b.name || a.kind != b.kind || a.values.size() != b.values.size())
        throw std::runtime_error("answers to other questions: " + a.name + ", " + b.name);
    if (a.kind == "bits") return a.hash == b.hash ? 0 : INFINITY;
    double largest = 0, farthest = 0;
    for (std::size_t i = 0; i < a.values.size(); ++i) {
        if (std::isfinite(a.values[i])) largest = std::max(largest, std::fabs(a.values[i]));
        farthest = std::max(farthest, difference(a.values[i], b.values[i]));
    }
    return farthest == 0 ? 0 : farthest / (largest * kTolerance * std::sqrt(std::stod(a.kind)));
}

std::string labelOf(const std::string& path) {
    const std::size_t begin = path.rfind('/') + 1;
    return path.substr(begin, path.rfind('.') - begin);
}

// Prints a table of hashes and distances; whether all files agree with the first.
bool compare(int fileCount, char** paths) {
    const std::vector<Line> reference = readLines(paths[0]);
    std::vector<std::vector<Line>> others;
    for (int i = 1; i < fileCount; ++i) {
        others.push_back(readLines(paths[i]));
        if (others.back().size() != reference.size())
            throw std::runtime_error(std::string(paths[i]) + ": another number of answers");
    }
    std::printf("%-34s %4s  %-16s", "difference / allowed", "", labelOf(paths[0]).c_str());
    for (int i = 1; i < fileCount; ++i) std::printf("  %16s", labelOf(paths[i]).c_str());
    std::printf("\n");
    bool agree = true;
    for (std::size_t i = 0; i < reference.size(); ++i) {
        std::printf("%-34s %4s  %s", reference[i].name.c_str(), reference[i].kind.c_str(), reference[i].hash.c_str());
        for (const std::vector<Line>& lines : others) {
            const double d = distance(reference[i], lines.at(i));
            if (lines[i].hash == reference[i].hash)
                std::printf("  %16s", "same");
            else
                std::printf("  %s %5.3f%s", lines[i].hash.substr(0, 10).c_str(), d, d <= 1 ? "" : " FAR");
            agree = agree && d <= 1;
        }
        std::printf("\n");
    }
    return agree;
}

// False when this processor cannot run it.
bool useProduct(const char* name) {
    for (const Product* supported : supportedProducts())
        if (std::strcmp(supported->name, name) == 0) {
            forceProduct(supported);
            return true;
        }
    return false;
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc > 2 && std::strcmp(argv[1], "--compare") == 0) return compare(argc - 2, argv + 2) ? 0 : 1;
    if (argc > 2) throw std::runtime_error("usage: answers [PRODUCT | --compare FILE FILE ...]");
    if (argc > 1 && !useProduct(argv[1])) return 0;
    writeElementwise();
    writeMoving();
    writeFixedSums();
    writeReductions();
    writeResizes();
    writeProductsAndExponentials();
    writeChain();
} catch (const std::exception& error) {
    std::fprintf(stderr, "answers: %s\n", error.what());
    return 1;
}
