// Sums of products over labelled axes: transpositions, matrix products and reductions.
#include "convert/onnx/Einsum.h"

#include <algorithm>
#include <numeric>

#include "convert/lower/alongAxis.h"
#include "convert/lower/broadcast.h"
#include "convert/lower/matmul.h"
#include "convert/lower/operators.h"

namespace convert {

namespace {

using Labels = std::vector<int>;

bool contains(const Labels& labels, int label) { return std::count(labels.begin(), labels.end(), label) != 0; }

// A tensor of the network or a constant, with a label for each axis.
struct Term {
    Labels labels;
    std::optional<Placed> tensor;
    std::optional<Array> values;

    Dims dims() const { return tensor ? tensor->dims() : values->dims(); }
    Axes axesOf(const Labels& wanted) const {
        Axes axes;
        for (const int label : wanted)
            axes.push_back(static_cast<int>(std::find(labels.begin(), labels.end(), label) - labels.begin()));
        return axes;
    }
};

Labels joined(Labels a, const Labels& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The values of a constant with its axes in another order.
Floats transposedValues(const Array& array, const Axes& order) {
    const Dims& dims = array.dims();
    std::vector<std::size_t> strides(dims.size(), 1);
    for (std::size_t axis = dims.size(); axis-- > 1;)
        strides[axis - 1] = strides[axis] * static_cast<std::size_t>(dims[axis]);
    const Floats values = floatsOf(array);
    std::vector<float> result;
    result.reserve(values->size());
    Dims index(order.size(), 0);
    std::size_t at = 0;
    for (std::size_t i = 0; i < values->size(); ++i) {
        result.push_back((*values)[at]);
        for (std::size_t k = order.size(); k-- > 0;) {
            const auto axis = static_cast<std::size_t>(order[k]);
            at += strides[axis];
            if (++index[k] < dims[axis]) break;
            at -= strides[axis] * static_cast<std::size_t>(dims[axis]);
            index[k] = 0;
        }
    }
    return std::make_shared<const std::vector<float>>(std::move(result));
}

class EinsumLowering {
public:
    explicit EinsumLowering(NodeLowering& n) : n_(n), program_(n.program) {
        std::vector<Dims> inputs;
        for (std::size_t i = 0; i < n.inputCount(); ++i) inputs.push_back(n.dims(i));
        einsum_ = einsumOf(n.text("equation", ""), inputs);
        for (const std::int64_t extent : einsum_.extents)
            if (extent == 0) n.refuse("takes an empty tensor", "remove the node");
        for (std::size_t i = 0; i < inputs.size(); ++i) addTerm(i);
    }

    Placed lower() {
        Term result = terms_.front();
        if (terms_.size() == 1) result = onlyKept(result, {});
        for (std::size_t i = 1; i < terms_.size(); ++i) result = combined(result, terms_[i], i + 1);
        return permuted(*result.tensor, result.axesOf(einsum_.result));
    }

private:
    void addTerm(std::size_t input) {
        Term term;
        term.labels = einsum_.operands[input];
        for (const int label : term.labels)
            if (std::count(term.labels.begin(), term.labels.end(), label) != 1)
                n_.refuse("takes a diagonal", "replace by a Mul with a constant mask, and a ReduceSum");
        if (n_.isConstant(input))
            term.values = n_.constant(input, "an operand");
        else
            term.tensor = n_.x(input);
        terms_.push_back(std::move(term));
    }

    // Whether the result or an operand from `next` on has the label.
    bool isNeeded(int label, std::size_t next) const {
        for (std::size_t i = next; i < terms_.size(); ++i)
            if (contains(terms_[i].labels, label)) return true;
        return contains(einsum_.result, label);
    }

    // The sum over the axes that neither the result nor `other` has.
    Term onlyKept(Term term, const Labels& other, std::size_t next = SIZE_MAX) {
        if (!term.tensor) term.tensor = constantStep(program_, *term.values);
        term.values.reset();
        for (std::size_t axis = term.labels.size(); axis-- > 0;) {
            if (contains(other, term.labels[axis]) || isNeeded(term.labels[axis], next)) continue;
            const Dims dims = term.dims();
            if (dims[axis] != 1) {
                program_.requireFloats(dims[axis]);
                term.tensor = mapped(program_, *term.tensor, axis,
                                     std::vector<float>(static_cast<std::size_t>(dims[axis]), 1.0f), 1);
            }
            term.tensor->axes.erase(term.tensor->axes.begin() + static_cast<std::ptrdiff_t>(axis));
            term.labels.erase(term.labels.begin() + static_cast<std::ptrdiff_t>(axis));
        }
        return term;
    }

    // Repeated along those of its axes where the other operands have more than one element.
    void expand(Term& term) {
        Dims whole;
        for (const int label : term.labels) whole.push_back(einsum_.extents[static_cast<std::size_t>(label)]);
        if (term.dims() == whole) return;
        if (!term.tensor) term.tensor = constantStep(program_, *term.values);
        term.values.reset();
        term.tensor = expanded(program_, *term.tensor, whole);
    }

    // The product of two operands, with the axes that the result or an operand from `next` on has.
    Term combined(Term a, Term b, std::size_t next) {
        if (!a.tensor) std::swap(a, b);
        const auto hasLonely = [&](const Term& term, const Term& other) {
            return std::any_of(term.labels.begin(), term.labels.end(),
                               [&](int label) { return !contains(other.labels, label) && !isNeeded(label, next); });
        };
        if (!a.tensor || hasLonely(a, b)) a = onlyKept(a, b.labels, next);
        if (hasLonely(b, a)) b = onlyKept(b, a.labels, next);
        expand(a);
        expand(b);
        Labels planes, inner, rows, columns;
        for (const int label : a.labels)
            (!contains(b.labels, label) ? rows : isNeeded(label, next) ? planes : inner).push_back(label);
        for (const int label : b.labels)
            if (!contains(a.labels, label)) columns.push_back(label);
        Term result;
        result.labels = joined(joined(planes, rows), columns);
        Dims dims;
        for (const int label : result.labels) dims.push_back(einsum_.extents[static_cast<std::size_t>(label)]);
        const int inside = extentOf(inner), width = extentOf(columns);
        if (b.values && extentOf(planes) == 1) {
            // Planes of one element, as the batch, are rows like others.
            Dims lines;
            const Labels order = joined(planes, rows);
            for (const int label : order) lines.push_back(einsum_.extents[static_cast<std::size_t>(label)]);
            lines.push_back(inside);
            const Placed x = reshapedAlways(program_, permuted(*a.tensor, a.axesOf(joined(order, inner))), lines);
            const Matrix matrix{transposedValues(*b.values, b.axesOf(joined(joined(planes, inner), columns))),
                                static_cast<std::size_t>(inside), static_cast<std::size_t>(width)};
            result.tensor = reshapedAlways(program_, product(program_, x, matrix, nullptr), dims);
            return result;
        }
        const int left = arranged(program_, *a.tensor, {a.axesOf(planes), a.axesOf(rows), a.axesOf(inner)});
        const int right =
            b.values ? program_.constant({1, extentOf(planes), inside, width, 3},
                                         transposedValues(*b.values, b.axesOf(joined(joined(planes, inner), columns))))
                     : arranged(program_, *b.tensor, {b.axesOf(planes), b.axesOf(inner), b.axesOf(columns)});
        result.tensor = placed(program_.matMul(left, right), dims);
        return result;
    }

    int extentOf(const Labels& labels) const {
        std::int64_t product = 1;
        for (const int label : labels) product *= einsum_.extents[static_cast<std::size_t>(label)];
        return asInt(product);
    }

    NodeLowering& n_;
    Program& program_;
    Einsum einsum_;
    std::vector<Term> terms_;
};

}  // namespace

void lowerEinsum(NodeLowering& n) { n.result(EinsumLowering(n).lower()); }

}  // namespace convert
