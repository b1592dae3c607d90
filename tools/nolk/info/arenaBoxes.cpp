#include "nolk/info/arenaBoxes.h"

#include <algorithm>
#include <map>

#include "inspect/format.h"

namespace {

class BoxCollector {
public:
    explicit BoxCollector(const ExaminedModel& model) : model_(model), lastStep_(1) {
        lastStep_ += static_cast<int>(model.factories().size());
        collectInputs();
        collectLayers();
        for (const nolk::TensorX* output : model.outputTensors()) use(output, lastStep_);
    }

    // What nobody uses is never given back.
    std::vector<ArenaBox> boxes() {
        for (ArenaBox& box : boxes_)
            if (box.lastStep < 0) box.lastStep = lastStep_;
        return boxes_;
    }

private:
    void collectInputs() {
        std::size_t next = 0;
        for (const ExaminedOperation& operation : model_.operations())
            if (operation.noted.name == "input") make(*model_.inputTensors()[next++], name(operation), 0);
    }

    void collectLayers() {
        for (std::size_t i = 0; i < model_.factories().size(); ++i) {
            const int layer = static_cast<int>(i);
            const LayerFactory& factory = *model_.factories()[i];
            const auto place = static_cast<std::size_t>(model_.operationOfLayer(layer));
            for (const nolk::TensorX* t : factory.inputs) use(t, layer + 1);
            for (const auto& t : factory.outputs) make(*t, name(model_.operations()[place]), layer + 1);
        }
    }

    static std::string name(const ExaminedOperation& operation) {
        return operation.noted.name + " #" + std::to_string(operation.record.number);
    }

    void make(const nolk::TensorX& t, const std::string& tensorName, int step) {
        const RawTensor* raw = t.rawTensor.get();
        const std::string shape = shapeText(t.shape);
        const auto found = places_.find(raw);
        if (found != places_.end()) {
            ArenaBox& box = boxes_[found->second];
            box.tensors.push_back(tensorName);
            const bool isNew = box.shapes.size() < shape.size() ||
                               box.shapes.compare(box.shapes.size() - shape.size(), shape.size(), shape) != 0;
            if (isNew) box.shapes += ", " + shape;
            return;
        }
        if (raw->size <= 0) return;
        const std::ptrdiff_t offset = raw->data - model_.runner()->arena()->locate(0);
        const auto floatBytes = static_cast<std::int64_t>(sizeof(float));
        places_[raw] = boxes_.size();
        boxes_.push_back({offset * floatBytes, raw->size * floatBytes, step, -1, {tensorName}, shape});
    }

    void use(const nolk::TensorX* t, int step) {
        const auto found = places_.find(t->rawTensor.get());
        if (found == places_.end()) return;  // a constant, or empty
        ArenaBox& box = boxes_[found->second];
        box.lastStep = std::max(box.lastStep, step);
    }

    const ExaminedModel& model_;
    int lastStep_;
    std::vector<ArenaBox> boxes_;
    std::map<const RawTensor*, std::size_t> places_;
};

}  // namespace

std::vector<ArenaBox> arenaBoxes(const ExaminedModel& model) { return BoxCollector(model).boxes(); }

std::vector<std::string> arenaSteps(const ExaminedModel& model) {
    std::vector<std::string> steps = {"inputs"};
    for (std::size_t i = 0; i < model.factories().size(); ++i) {
        const auto place = static_cast<std::size_t>(model.operationOfLayer(static_cast<int>(i)));
        steps.push_back(model.runner()->layers()[i]->desc + " #" +
                        std::to_string(model.operations()[place].record.number));
    }
    steps.push_back("outputs");
    return steps;
}
