#include "convert/onnx/Einsum.h"

#include <algorithm>
#include <map>

#include "convert/onnx/OnnxError.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

// The axis of an ellipsis that is i-th from the last one. Letters are positive, so they come behind all of these.
int ellipsisKey(std::size_t i) { return -1 - static_cast<int>(i); }

class Parser {
public:
    Parser(const std::string& equation, const std::vector<Dims>& inputs) : equation_(equation), inputs_(inputs) {
        for (const char c : equation)
            if (c != ' ') text_ += c;
    }

    Einsum parse() {
        const std::size_t arrow = text_.find("->");
        std::size_t begin = 0;
        const std::string left = text_.substr(0, arrow);
        for (std::size_t i = 0; i < inputs_.size(); ++i) {
            const std::size_t end = std::min(left.find(',', begin), left.size());
            if (begin > left.size()) fail("names fewer operands than there are inputs");
            addOperand(left.substr(begin, end - begin), inputs_[i]);
            begin = end + 1;
        }
        if (begin <= left.size()) fail("names more operands than there are inputs");
        setResult(arrow == std::string::npos ? impliedResult() : keysOf(text_.substr(arrow + 2), ellipsis_));
        return std::move(made_);
    }

private:
    [[noreturn]] void fail(const std::string& why) const {
        throw OnnxError("equation " + inQuotes(equation_) + ": " + why,
                        "correct the equation, or the shapes of its operands");
    }

    // One key for each axis of a term whose ellipsis, if there is one, stands for as many axes.
    std::vector<int> keysOf(const std::string& term, std::size_t ellipsis) const {
        std::vector<int> keys;
        for (std::size_t i = 0; i < term.size(); ++i) {
            const char c = term[i];
            const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
            if (isLetter) {
                keys.push_back(c);
            } else if (term.compare(i, 3, "...") == 0) {
                for (std::size_t axis = ellipsis; axis-- > 0;) keys.push_back(ellipsisKey(axis));
                i += 2;
            } else {
                fail("is not understood");
            }
        }
        return keys;
    }

    void addOperand(const std::string& term, const Dims& dims) {
        const std::size_t letters = keysOf(term, 0).size();
        const bool hasEllipsis = term.find('.') != std::string::npos;
        if (letters > dims.size() || (!hasEllipsis && letters != dims.size()))
            fail(inQuotes(term) + " does not fit an input of shape " + describeDims(dims));
        const std::size_t ellipsis = dims.size() - letters;
        const std::vector<int> keys = keysOf(term, ellipsis);
        if (keys.size() != dims.size()) fail("has two ellipses in " + inQuotes(term));
        ellipsis_ = std::max(ellipsis_, ellipsis);
        made_.operands.emplace_back();
        for (std::size_t axis = 0; axis < keys.size(); ++axis) {
            const int label = labelOf(keys[axis], dims[axis]);
            ++uses_[keys[axis]];
            std::int64_t& extent = made_.extents[static_cast<std::size_t>(label)];
            const bool canRepeat = keys[axis] < 0 && (extent == 1 || dims[axis] == 1);
            if (extent != dims[axis] && !canRepeat) fail("extents do not fit: " + describeDims(dims));
            if (extent == 1) extent = dims[axis];
            made_.operands.back().push_back(label);
        }
    }

    int labelOf(int key, std::int64_t extent) {
        const auto [found, isNew] = labels_.emplace(key, static_cast<int>(labels_.size()));
        if (isNew) made_.extents.push_back(extent);
        return found->second;
    }

    // The ellipsis, then the letters that stand in the equation once, in the alphabet's order.
    std::vector<int> impliedResult() const {
        std::vector<int> keys = keysOf("...", ellipsis_);
        for (const auto& [key, count] : uses_)
            if (key > 0 && count == 1) keys.push_back(key);
        return keys;
    }

    void setResult(const std::vector<int>& keys) {
        for (const int key : keys) {
            const auto found = labels_.find(key);
            if (found == labels_.end()) fail("the result has a label that no input has");
            const int label = found->second;
            if (std::count(made_.result.begin(), made_.result.end(), label) != 0) fail("the result has a label twice");
            made_.result.push_back(label);
        }
    }

    const std::string& equation_;
    const std::vector<Dims>& inputs_;
    std::string text_;  // the equation without blanks
    std::size_t ellipsis_ = 0;
    std::map<int, int> labels_, uses_;  // by key
    Einsum made_;
};

}  // namespace

Dims Einsum::resultDims() const {
    Dims dims;
    for (const int label : result) dims.push_back(extents[static_cast<std::size_t>(label)]);
    return dims;
}

Einsum einsumOf(const std::string& equation, const std::vector<Dims>& inputs) {
    return Parser(equation, inputs).parse();
}

}  // namespace convert
