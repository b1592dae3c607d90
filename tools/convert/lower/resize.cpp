// Resize and Upsample. An axis is resized by a matrix [out, in], of which each row has the few weights of an output
// element; where nolk's resize has the same matrices it is used, otherwise elements are gathered or multiplied with
// them.
#include <algorithm>
#include <cmath>
#include <map>

#include "convert/lower/alongAxis.h"
#include "convert/lower/operators.h"

namespace convert {

namespace {

struct Rule {
    std::string mode;         // nearest, linear, cubic
    std::string coordinates;  // half_pixel and so on
    std::string rounding;     // of nearest
    double cubicA = -0.75;
    bool excludesOutside = false;
};

struct AxisSize {
    std::int64_t in = 1;
    std::int64_t out = 1;
    double scale = 1;
};

double sourceOf(const NodeLowering& n, const Rule& rule, const AxisSize& size, std::int64_t index) {
    const double x = static_cast<double>(index), in = static_cast<double>(size.in), out = static_cast<double>(size.out);
    const double length = size.scale * in;  // out before it was rounded
    if (rule.coordinates == "half_pixel") return (x + 0.5) / size.scale - 0.5;
    if (rule.coordinates == "pytorch_half_pixel") return size.out > 1 ? (x + 0.5) / size.scale - 0.5 : 0.0;
    if (rule.coordinates == "align_corners") return length != 1 ? x * (in - 1) / (length - 1) : 0.0;
    if (rule.coordinates == "asymmetric") return x / size.scale;
    if (rule.coordinates == "tf_half_pixel_for_nn") return (x + 0.5) / size.scale;
    if (rule.coordinates == "half_pixel_symmetric") return in / 2 * (1 - out / length) + (x + 0.5) / size.scale - 0.5;
    n.refuse("coordinate_transformation_mode " + rule.coordinates, "use half_pixel, align_corners or asymmetric");
}

double rounded(double x, const std::string& rounding) {
    if (rounding == "round_prefer_floor") return std::ceil(x - 0.5);
    if (rounding == "round_prefer_ceil") return std::floor(x + 0.5);
    return rounding == "ceil" ? std::ceil(x) : std::floor(x);
}

std::int64_t inside(double index, std::int64_t extent) {
    return std::clamp<std::int64_t>(static_cast<std::int64_t>(index), 0, extent - 1);
}

double cubic(double distance, double a) {
    const double d = std::fabs(distance);
    if (d <= 1) return ((a + 2) * d - (a + 3)) * d * d + 1;
    return d < 2 ? ((a * d - 5 * a) * d + 8 * a) * d - 4 * a : 0.0;
}

using Row = std::map<std::int64_t, float>;  // weights by the input's index
using Matrix = std::vector<Row>;

Row weightsAt(const Rule& rule, double source, std::int64_t extent) {
    if (rule.mode == "nearest") return {{inside(rounded(source, rule.rounding), extent), 1.0f}};
    const double below = std::floor(source);
    const int reach = rule.mode == "cubic" ? 2 : 1;
    std::vector<double> weights;
    double sum = 0;
    for (int k = 1 - reach; k <= reach; ++k) {
        const double distance = source - (below + k);
        double weight = rule.mode == "cubic" ? cubic(distance, rule.cubicA) : 1 - std::fabs(distance);
        const bool isOutside = below + k < 0 || below + k > static_cast<double>(extent - 1);
        if (rule.excludesOutside && isOutside) weight = 0;
        weights.push_back(weight);
        sum += weight;
    }
    Row row;
    for (int k = 1 - reach; k <= reach; ++k)
        row[inside(below + k, extent)] +=
            static_cast<float>(weights[static_cast<std::size_t>(k + reach - 1)] / (rule.excludesOutside ? sum : 1.0));
    return row;
}

Matrix matrixOf(const NodeLowering& n, const Rule& rule, const AxisSize& size) {
    constexpr std::int64_t kLargest = 1 << 20;
    if (size.out > kLargest) n.refuse("too large an extent: " + std::to_string(size.out), "resize to fewer elements");
    Matrix matrix;
    for (std::int64_t i = 0; i < size.out; ++i) matrix.push_back(weightsAt(rule, sourceOf(n, rule, size, i), size.in));
    return matrix;
}

// What nolk's resize does, as a matrix.
Matrix ownMatrix(const AxisSize& size, nolk::ResizeMode mode, nolk::ResizeTransMode transMode) {
    Matrix matrix;
    const double in = static_cast<double>(size.in), out = static_cast<double>(size.out);
    for (std::int64_t i = 0; i < size.out; ++i) {
        const double x = static_cast<double>(i);
        if (mode == nolk::ResizeMode::nearest) {
            matrix.push_back({{inside(x * (in / out), size.in), 1.0f}});
            continue;
        }
        double source = (x + 0.5) * in / out - 0.5;
        if (transMode == nolk::ResizeTransMode::alignCorners) source = size.out > 1 ? x * (in - 1) / (out - 1) : 0.0;
        source = std::clamp(source, 0.0, in - 1);
        const double below = std::min(std::floor(source), std::max(in - 2, 0.0));
        Row row;
        row[inside(below, size.in)] += static_cast<float>(1 - (source - below));
        row[inside(below + 1, size.in)] += static_cast<float>(source - below);
        matrix.push_back(row);
    }
    return matrix;
}

bool hasWeightsOf(const Row& row, const Row& other) {
    constexpr float kTolerance = 1e-4f;  // nolk's coordinates are floats
    return std::all_of(row.begin(), row.end(), [&](const auto& entry) {
        const auto found = other.find(entry.first);
        return std::fabs(entry.second - (found == other.end() ? 0.0f : found->second)) <= kTolerance;
    });
}

bool areAlike(const Matrix& a, const Matrix& b) {
    return std::equal(a.begin(), a.end(), b.begin(),
                      [](const Row& x, const Row& y) { return hasWeightsOf(x, y) && hasWeightsOf(y, x); });
}

// Scales for all axes; empty where sizes are given.
std::vector<double> scalesOf(const NodeLowering& n, std::size_t rank) {
    std::vector<float> given;
    constexpr int kInput = 9, kRoi = 11;  // opsets: scales become an input, the region comes before them
    if (n.type() == "Upsample" && n.opset() < kInput) {
        const auto* scales = n.attribute("scales");
        if (scales != nullptr) given.assign(scales->floats().begin(), scales->floats().end());
    } else {
        const std::size_t input = n.type() == "Upsample" || n.opset() < kRoi ? 1 : 2;
        if (n.has(input)) given = *n.floats(input, "scales");
    }
    if (given.empty()) return {};
    std::vector<double> scales(rank, 1.0);
    auto axes = n.integerList("axes");
    if (axes.empty())
        for (std::size_t i = 0; i < rank; ++i) axes.push_back(static_cast<std::int64_t>(i));
    if (axes.size() != given.size()) n.refuse("scales for " + std::to_string(given.size()) + " axes", kAgainstOnnx);
    for (std::size_t i = 0; i < axes.size(); ++i) scales[n.axis(axes[i], rank)] = given[i];
    return scales;
}

// keep_aspect_ratio_policy: the axes that sizes are given for have one scale, which the rounded extents do not tell.
void keepRatio(const NodeLowering& n, std::vector<AxisSize>& sizes) {
    const std::string policy = n.text("keep_aspect_ratio_policy", "stretch");
    constexpr std::size_t kSizes = 3;
    if (policy == "stretch" || !n.has(kSizes)) return;
    const std::vector<std::int64_t> wanted = n.integers(kSizes, "sizes");
    std::vector<std::size_t> axes;
    for (const std::int64_t axis : n.integerList("axes")) axes.push_back(n.axis(axis, sizes.size()));
    for (std::size_t i = axes.size(); i < wanted.size(); ++i) axes.push_back(i);
    std::vector<double> scales;
    for (std::size_t i = 0; i < wanted.size(); ++i)
        scales.push_back(static_cast<double>(wanted[i]) / static_cast<double>(sizes.at(axes[i]).in));
    const auto [least, most] = std::minmax_element(scales.begin(), scales.end());
    for (const std::size_t axis : axes) sizes[axis].scale = policy == "not_larger" ? *least : *most;
}

Rule ruleOf(const NodeLowering& n) {
    constexpr int kCoordinates = 11;  // the opset that brought the choice of coordinates
    const bool isOld = n.type() == "Upsample" || n.opset() < kCoordinates;
    Rule rule;
    rule.mode = n.text("mode", "nearest");
    if (rule.mode == "bilinear") rule.mode = "linear";
    rule.coordinates = isOld ? "asymmetric" : n.text("coordinate_transformation_mode", "half_pixel");
    rule.rounding = isOld ? "floor" : n.text("nearest_mode", "round_prefer_floor");
    rule.cubicA = n.number("cubic_coeff_a", -0.75f);
    rule.excludesOutside = n.integer("exclude_outside", 0) != 0;
    if (rule.mode != "nearest" && rule.mode != "linear" && rule.mode != "cubic")
        n.refuse("mode " + rule.mode, kAgainstOnnx);
    if (n.integer("antialias", 0) != 0) n.refuse("antialias", "export without antialias");
    return rule;
}

std::optional<Placed> resizedDirectly(NodeLowering& n, const Placed& x, const Rule& rule,
                                      const std::vector<AxisSize>& sizes) {
    if (x.rank() < 3 || rule.mode == "cubic") return std::nullopt;
    const std::size_t w = x.rank() - 1, h = w - 1;
    const std::size_t first = x.rank() == 3 ? w : h;  // [n, c, l] has no rows
    for (std::size_t i = 0; i < first; ++i)
        if (sizes[i].in != sizes[i].out) return std::nullopt;
    const auto mode = rule.mode == "nearest" ? nolk::ResizeMode::nearest : nolk::ResizeMode::linear;
    for (const auto transMode : {nolk::ResizeTransMode::halfPixel, nolk::ResizeTransMode::alignCorners}) {
        bool fits = true;
        for (std::size_t i = first; i <= w; ++i)
            fits = fits && areAlike(matrixOf(n, rule, sizes[i]), ownMatrix(sizes[i], mode, transMode));
        if (!fits) continue;
        Axes planes;
        for (std::size_t i = 0; i < first; ++i) planes.push_back(static_cast<int>(i));
        Axes rows;
        if (first == h) rows.push_back(static_cast<int>(h));
        const int step = arranged(n.program, x, {planes, rows, {static_cast<int>(w)}});
        const int height = first == h ? asInt(sizes[h].out) : 1;
        return placed(n.program.resize(step, height, asInt(sizes[w].out), mode, transMode), n.outDims());
    }
    return std::nullopt;
}

// The single elements that a matrix of nearest takes.
std::vector<std::int64_t> indicesOf(const Matrix& matrix) {
    std::vector<std::int64_t> indices;
    for (const Row& row : matrix) indices.push_back(row.begin()->first);
    return indices;
}

std::vector<float> dense(const NodeLowering& n, const Matrix& matrix, std::int64_t columns) {
    constexpr std::int64_t kLargest = 1 << 24;
    const auto rows = static_cast<std::int64_t>(matrix.size());
    n.program.requireFloats(rows * columns);
    if (rows * columns > kLargest)
        n.refuse("from " + std::to_string(columns) + " to " + std::to_string(rows) + " elements",
                 "use half_pixel or align_corners, which need no matrix");
    std::vector<float> values(static_cast<std::size_t>(rows * columns), 0.0f);
    for (std::size_t i = 0; i < matrix.size(); ++i)
        for (const auto& [index, weight] : matrix[i])
            values[i * static_cast<std::size_t>(columns) + static_cast<std::size_t>(index)] = weight;
    return values;
}

}  // namespace

void lowerResize(NodeLowering& n) {
    const Placed x = n.x(0);
    const Rule rule = ruleOf(n);
    const Dims &in = n.dims(0), &out = n.outDims();
    const std::vector<double> scales = scalesOf(n, in.size());
    std::vector<AxisSize> sizes;
    for (std::size_t i = 0; i < in.size(); ++i) {
        const double quotient = static_cast<double>(out[i]) / static_cast<double>(in[i]);
        // A scale is a float, and the nearest one to a quotient of extents stands for the quotient.
        const bool isQuotient = scales.empty() || static_cast<float>(quotient) == static_cast<float>(scales[i]);
        const double scale = isQuotient ? quotient : scales[i];
        sizes.push_back({in[i], out[i], scale});
    }
    if (scales.empty()) keepRatio(n, sizes);
    if (const auto direct = resizedDirectly(n, x, rule, sizes)) return n.result(*direct);
    Placed result = x;
    for (std::size_t i = 0; i < in.size(); ++i) {
        if (in[i] == out[i] && sizes[i].scale == 1.0) continue;
        const Matrix matrix = matrixOf(n, rule, sizes[i]);
        result = rule.mode == "nearest" ? gathered(n.program, result, i, indicesOf(matrix))
                                        : mapped(n.program, result, i, dense(n, matrix, in[i]), asInt(out[i]));
    }
    n.result(result);
}

}  // namespace convert
