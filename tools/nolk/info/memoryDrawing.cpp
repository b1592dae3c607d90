#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>

#include "inspect/format.h"
#include "nolk/info/drawings.h"
#include "nolk/output.h"

namespace {

constexpr double kLeft = 90, kTop = 108, kRight = 24, kBottom = 130, kPlotHeight = 440;
constexpr double kMostWidth = 3800;  // of all steps together; if there are many, each is narrower
constexpr double kScratchTop = 58, kScratchHeight = 24;
constexpr double kLeastBoxHeight = 3;        // so that small tensors stay visible beside large ones
constexpr double kLeastLabelledStep = 14;    // narrower steps have no labels
constexpr double kLetter = 6.1, kLine = 13;  // width of a letter and height of a line at font size 11

std::string format(const char* text, ...) __attribute__((format(printf, 1, 2)));

std::string format(const char* text, ...) {
    char buffer[512];
    va_list arguments;
    va_start(arguments, text);
    std::vsnprintf(buffer, sizeof buffer, text, arguments);
    va_end(arguments);
    return buffer;
}

// Background colours for black text. Boxes that follow each other get different ones.
const char* colourOf(std::size_t index) {
    static constexpr const char* kColours[] = {"#a6cee3", "#fdbf6f", "#b2df8a", "#cab2d6", "#fb9a99",
                                               "#ffed99", "#8dd3c7", "#e5c494", "#f1b6da", "#c7d3e3"};
    return kColours[index % std::size(kColours)];
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

// A range of the arena with its labels.
struct Box {
    nolk::ArenaRange range;
    std::vector<std::string> tensors;  // "relu #3"
    std::string shapes;                // "[1, 8, 28, 28]", of each that differs from the one before
};

std::vector<Box> boxesOf(const nolk::ModelInfo& info) {
    std::vector<Box> boxes;
    for (const nolk::ArenaRange& range : info.arenaRanges) {
        Box box{range, {}, {}};
        std::string last;
        for (const int place : range.operations) {
            const nolk::ModelOperation& operation = info.operations[static_cast<std::size_t>(place)];
            box.tensors.push_back(operation.name + " #" + std::to_string(operation.record));
            const std::string shape = shapeText(operation.output);
            if (shape != last) box.shapes += (last.empty() ? "" : ", ") + shape;
            last = shape;
        }
        boxes.push_back(box);
    }
    return boxes;
}

// "inputs", "conv #2", ..., "outputs"
std::vector<std::string> stepsOf(const nolk::ModelInfo& info) {
    std::vector<std::string> steps = {"inputs"};
    for (const nolk::ModelLayer& layer : info.layers)
        steps.push_back(layer.kind + " #" +
                        std::to_string(info.operations[static_cast<std::size_t>(layer.operation)].record));
    steps.push_back("outputs");
    return steps;
}

struct Rectangle {
    double left, top, right, bottom;

    bool meets(const Rectangle& other) const {
        return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
    }
};

class Drawing {
public:
    Drawing(const std::string& path, const nolk::ModelInfo& info)
        : path_(path), info_(info), boxes_(boxesOf(info)), steps_(stepsOf(info)), bytes_(info.arenaBytes) {
        const auto count = static_cast<double>(steps_.size());
        stepWidth_ = std::clamp(1000 / count, std::min(20.0, kMostWidth / count), 120.0);
        width_ = std::max(kLeft + stepWidth_ * count + kRight, 640.0);
    }

    std::string svg() {
        head();
        if (info_.scratchBytes > 0) scratch();
        byteAxis();
        stepAxis();
        for (const Box& b : boxes_) taken_.push_back(rectangleOf(b));
        for (std::size_t i = 0; i < boxes_.size(); ++i) box(boxes_[i], taken_[i], colourOf(i));
        return svg_ + "</svg>\n";
    }

private:
    double x(int step) const { return kLeft + stepWidth_ * step; }

    double y(std::int64_t offset) const {
        return kTop + kPlotHeight * (1 - static_cast<double>(offset) / static_cast<double>(bytes_));
    }

    void text(double atX, double atY, const char* attributes, const std::string& content) {
        svg_ += format("<text x=\"%.1f\" y=\"%.1f\" %s>", atX, atY, attributes) + xmlText(content) + "</text>\n";
    }

    void head() {
        const double height = kTop + kPlotHeight + kBottom;
        svg_ = format(
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" viewBox=\"0 0 %.0f %.0f\" "
            "font-family=\"Helvetica, Arial, sans-serif\" font-size=\"11\">\n"
            "<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
            width_, height, width_, height);
        std::int64_t total = 0;
        for (const Box& b : boxes_) total += b.range.sizeBytes;
        text(kLeft, 26, "font-size=\"16\"", "Arena of " + path_ + ": " + bytesText(bytes_));
        text(kLeft, 44, "fill=\"#555555\"",
             counted(static_cast<std::int64_t>(boxes_.size()), "range") + " share it, which side by side would take " +
                 bytesText(total));
    }

    // The scratch memory is not to scale, because it is often larger than the arena. It spans the layers only: copying
    // inputs and outputs needs none.
    void scratch() {
        const double left = x(1), right = x(static_cast<int>(steps_.size()) - 1);
        const std::string size = bytesText(info_.scratchBytes);
        svg_ += "<g><title>" + xmlText("scratch: " + size) + "</title>\n";
        svg_ += format(
            "<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"#eeeeee\" stroke=\"#444444\" "
            "stroke-width=\"0.7\" stroke-dasharray=\"4 2\"/>\n",
            left, kScratchTop, right - left, kScratchHeight);
        const std::string texts[] = {"scratch memory, shared by the layers: " + size + ", not drawn to scale",
                                     "scratch: " + size, "scratch"};
        for (const std::string& shown : texts)
            if (label({shown}, (left + right) / 2, kScratchTop + kScratchHeight / 2, right - left, kScratchHeight,
                      false))
                break;
        svg_ += "</g>\n";
    }

    // Draws four to eight ticks, at multiples of a power of two.
    void byteAxis() {
        const double units = std::log2(static_cast<double>(bytes_)) - 2;
        const std::int64_t tick = std::int64_t{1} << static_cast<int>(std::max(std::floor(units), 0.0));
        const double right = x(static_cast<int>(steps_.size()));
        for (std::int64_t offset = 0; offset <= bytes_; offset += tick) {
            svg_ += format("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#dddddd\"/>\n", kLeft - 4,
                           y(offset), right, y(offset));
            text(kLeft - 8, y(offset) + 4, "text-anchor=\"end\"", inUnitOf(tick, offset));
        }
        svg_ += format(
            "<text transform=\"translate(20 %.1f) rotate(-90)\" text-anchor=\"middle\">offset in the arena, "
            "bytes</text>\n",
            kTop + kPlotHeight / 2);
    }

    static std::string inUnitOf(std::int64_t tick, std::int64_t bytes) {
        if (bytes == 0) return "0";
        if (tick >= 1 << 20) return grouped(bytes >> 20) + " Mi";
        if (tick >= 1 << 10) return grouped(bytes >> 10) + " Ki";
        return grouped(bytes);
    }

    void stepAxis() {
        const double bottom = kTop + kPlotHeight;
        const auto stride = static_cast<std::size_t>(std::max(std::ceil(kLeastLabelledStep / stepWidth_), 1.0));
        for (std::size_t i = 0; i <= steps_.size(); i += stride) {
            const double edge = x(static_cast<int>(i));
            svg_ += format("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#eeeeee\"/>\n", edge, kTop,
                           edge, bottom + 4);
            if (i == steps_.size()) break;
            svg_ += format("<text transform=\"translate(%.1f %.1f) rotate(-55)\" text-anchor=\"end\">",
                           edge + stepWidth_ / 2 + 4, bottom + 14) +
                    xmlText(steps_[i]) + "</text>\n";
        }
        text(kLeft + stepWidth_ * static_cast<double>(steps_.size()) / 2, bottom + kBottom - 12,
             "text-anchor=\"middle\"", "time: the layers in the order in which they run");
    }

    Rectangle rectangleOf(const Box& b) const {
        const nolk::ArenaRange& r = b.range;
        const double bottom = y(r.offsetBytes);
        return {x(r.firstStep), std::min(y(r.offsetBytes + r.sizeBytes), bottom - kLeastBoxHeight), x(r.lastStep + 1),
                bottom};
    }

    void box(const Box& b, Rectangle place, const char* colour) {
        const auto [left, top, right, bottom] = place;
        const std::string name = joined(b.tensors);
        const std::string range = bytesText(b.range.sizeBytes) + " at " + grouped(b.range.offsetBytes);
        svg_ += "<g><title>" + xmlText(name) + "\n" + xmlText(b.shapes) + "\n" + xmlText(range) + "</title>\n";
        svg_ += format(
            "<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"%s\" stroke=\"#444444\" "
            "stroke-width=\"%.2f\"/>\n",
            left, top, right - left, bottom - top, colour, std::min(0.7, stepWidth_ / 8));
        boxLabel(b, name, place);
        svg_ += "</g>\n";
    }

    void boxLabel(const Box& b, const std::string& name, const Rectangle& place) {
        const auto [left, top, right, bottom] = place;
        const double centreX = (left + right) / 2, centreY = (top + bottom) / 2;
        const std::string names[] = {name, b.tensors.front() + ", ...", b.tensors.front()};
        for (const std::string& shownName : names) {
            const std::vector<std::string> lines = {shownName, b.shapes, bytesText(b.range.sizeBytes)};
            if (label(lines, centreX, centreY, right - left, bottom - top, false)) return;
            if (label(lines, centreX, centreY, bottom - top, right - left, true)) return;
        }
        for (const std::string& shownName : names)
            if (labelAbove(shownName, place)) return;
    }

    // Puts the label above a box that is too low for it, if there is free space; upright if that is narrow.
    bool labelAbove(const std::string& name, const Rectangle& box) {
        if (stepWidth_ < kLeastLabelledStep) return false;
        const double length = static_cast<double>(name.size()) * kLetter + 6, centre = (box.left + box.right) / 2;
        for (const bool upright : {false, true}) {
            const double width = upright ? kLine : length, height = upright ? length : kLine;
            const Rectangle place{centre - width / 2, box.top - height, centre + width / 2, box.top};
            const bool isInside = place.left >= kLeft && place.right <= width_ && place.top >= kTop;
            const bool isFree = std::none_of(taken_.begin(), taken_.end(),
                                             [&place](const Rectangle& other) { return other.meets(place); });
            if (!isInside || !isFree) continue;
            taken_.push_back(place);
            return label({name}, centre, box.top - height / 2, length, kLine + 2, upright);
        }
        return false;
    }

    // Draws as many of the lines as fit into length (along the text) and height. Returns whether the first one fitted.
    bool label(const std::vector<std::string>& lines, double centreX, double centreY, double length, double height,
               bool upright) {
        std::vector<std::string> fitting;
        for (const std::string& line : lines) {
            const bool fits = static_cast<double>(line.size()) * kLetter + 6 <= length &&
                              static_cast<double>(fitting.size() + 1) * kLine + 2 <= height;
            if (fits) fitting.push_back(line);
            if (!fits && &line == &lines.front()) return false;
        }
        double baseline = 4 - kLine * static_cast<double>(fitting.size() - 1) / 2;
        svg_ += format("<g transform=\"translate(%.1f %.1f)%s\" text-anchor=\"middle\" pointer-events=\"none\">\n",
                       centreX, centreY, upright ? " rotate(-90)" : "");
        for (const std::string& line : fitting) {
            text(0, baseline, "", line);
            baseline += kLine;
        }
        svg_ += "</g>\n";
        return true;
    }

    const std::string& path_;
    const nolk::ModelInfo& info_;
    std::vector<Box> boxes_;
    std::vector<std::string> steps_;
    std::vector<Rectangle> taken_;  // boxes, and labels beside them
    std::int64_t bytes_;
    double stepWidth_ = 0, width_ = 0;
    std::string svg_;
};

}  // namespace

std::string memoryDrawing(const std::string& path, const nolk::ModelInfo& info) {
    if (!info.isBuilt) throw std::runtime_error(path + ": " + info.remark);
    if (info.arenaBytes <= 0) throw std::runtime_error(path + ": the network needs no arena");
    return Drawing(path, info).svg();
}
