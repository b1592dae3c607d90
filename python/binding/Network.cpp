#include "Network.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>

#include "implementations.h"
#include "samples.h"

namespace {

// A shared runner takes more than a batch at a time, so that its batches are full, but not all samples at once, since
// it keeps a record of each.
constexpr py::ssize_t kBatchesOfSharedCall = 8;

constexpr int kWholeBatch = -1;

std::string takeMessages() {
    std::string all;
    for (char text[256];;) {
        nolk_pop_error_message(text, sizeof text);
        if (!*text) return all;
        all += (all.empty() ? "" : "; ") + std::string(text);
    }
}

nolk::Owned<nolk::Runner> load(const void* data, std::size_t size, const std::string& implementation,
                               const LoadOptions& options) {
    requireImplementation(implementation);
    takeMessages();  // so that those which follow belong to this call
    try {
        return nolk::loadModel(data, size, options.batch, implementation.c_str(), options.limits);
    } catch (const nolk::LimitExceeded&) {
        throw;
    } catch (const nolk::ModelError& e) {
        const std::string messages = takeMessages();
        throw nolk::ModelError(e.what() + (messages.empty() ? "" : ": " + messages));
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        const std::string text = e.what();  // of a setting that is not a number it is the name of a function
        throw nolk::ModelError(implementation + ": " + (text == "stol" ? "a setting is not a number" : text));
    }
}

nolk::Owned<nolk::Runner> wrapForThreads(nolk::Owned<nolk::Runner> runner, int batch) {
    nolk::Runner* const wrapped = nolk_wrap_batch_runner(runner.get(), batch);
    if (!wrapped) throw nolk::ModelError(takeMessages());
    static_cast<void>(runner.release());  // owned by the wrapper now
    return nolk::Owned<nolk::Runner>(wrapped);
}

// Another implementation may have threads that stay, if its settings ask for them. The built-in one's last for a
// product.
bool mayHaveThreads(const std::string& implementation) {
    return implementationName(implementation) != "NolkRaw" && implementation.find(':') != std::string::npos;
}

// A file may hold any bytes as a name, but Python's text must be UTF-8.
std::string asText(const std::string& name) {
    const auto size = static_cast<py::ssize_t>(name.size());
    return py::reinterpret_steal<py::str>(PyUnicode_DecodeUTF8(name.data(), size, "replace"));
}

std::vector<ArrayForm> formsOf(const nolk::ModelInfo& info, const std::vector<int>& places,
                               const std::vector<std::string>& names, const std::string& kind) {
    std::vector<ArrayForm> forms;
    for (std::size_t i = 0; i < places.size(); ++i) {
        forms.push_back({names.empty() ? kind + " " + std::to_string(i) : asText(names[i]),
                         info.operations[static_cast<std::size_t>(places[i])].output});
        const nolk::TensorShape& s = forms.back().shape;
        if (std::min({s.c, s.h, s.w}) < 0)  // a window larger than its input, for example
            throw nolk::ModelError(forms.back().name + ": its extents are [" + std::to_string(s.c) + ", " +
                                   std::to_string(s.h) + ", " + std::to_string(s.w) + "], some below 0");
    }
    return forms;
}

bool overlap(const py::array& a, const py::array& b) {
    const auto* const aData = static_cast<const char*>(a.data());
    const auto* const bData = static_cast<const char*>(b.data());
    return aData < bData + b.nbytes() && bData < aData + a.nbytes();
}

void requireDistinct(const std::vector<py::array>& inputs, const std::vector<py::array>& outputs) {
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        const auto meets = [&](const py::array& other) { return overlap(outputs[i], other); };
        if (std::any_of(inputs.begin(), inputs.end(), meets) ||
            std::any_of(outputs.begin(), outputs.begin() + static_cast<std::ptrdiff_t>(i), meets))
            throw py::value_error("an output array shares memory with another array");
    }
}

// A list or tuple with an array for each input or output, given as that parameter. An array is a sequence, too, but of
// its samples.
py::sequence requireList(py::handle arrays, const std::vector<ArrayForm>& forms, const std::string& kind,
                         const char* parameter) {
    if (!PySequence_Check(arrays.ptr()) || py::isinstance<py::array>(arrays))
        throw py::type_error(std::string(parameter) + ": expected a list of arrays, got " +
                             Py_TYPE(arrays.ptr())->tp_name);
    auto list = py::reinterpret_borrow<py::sequence>(arrays);
    if (list.size() != forms.size())
        throw py::type_error("expected " + std::to_string(forms.size()) + " " + kind + " array" +
                             (forms.size() == 1 ? "" : "s") + ", got " + std::to_string(list.size()));
    return list;
}

// Views of `count` samples from `first` on, or of as many as the network has.
void pointTo(std::vector<nolk::Tensor>& tensors, const std::vector<ArrayForm>& forms, const std::vector<float*>& data,
             py::ssize_t first, int count) {
    tensors.reserve(1);  // so that the pointer is not null, without inputs either
    tensors.resize(forms.size());
    for (std::size_t i = 0; i < forms.size(); ++i) {
        tensors[i] = {forms[i].shape, data[i] + static_cast<std::size_t>(first) * forms[i].sampleSize()};
        if (count != kWholeBatch) tensors[i].shape.n = count;
    }
}

std::vector<float*> dataOf(const std::vector<py::array>& arrays) {
    std::vector<float*> data;
    for (const py::array& array : arrays)
        data.push_back(const_cast<float*>(static_cast<const float*>(array.data())));  // inputs are only read
    return data;
}

// Floats of a whole batch, for the last samples that do not fill one.
using Buffers = std::vector<std::vector<float>>;

std::vector<float*> buffersFor(Buffers& buffers, const std::vector<ArrayForm>& forms, int batch) {
    std::vector<float*> data;
    buffers.resize(forms.size());
    for (std::size_t i = 0; i < forms.size(); ++i) {
        buffers[i].resize(forms[i].sampleSize() * static_cast<std::size_t>(batch) + 1);  // never null
        data.push_back(buffers[i].data());
    }
    return data;
}

}  // namespace

struct Network::Loaded {
    Loaded(nolk::Owned<nolk::Runner> loadedRunner, bool hasThreads)
        : runner(std::move(loadedRunner)), process(hasThreads ? getpid() : 0) {}

    // A runner's threads do not exist in a forked process, and waiting for them would never end.
    ~Loaded() {
        if (!isUsable()) static_cast<void>(runner.release());
    }
    bool isUsable() const { return process == 0 || process == getpid(); }

    void run(std::vector<nolk::Tensor>& from, std::vector<nolk::Tensor>& to) {
        bool isDone = false;
        try {
            isDone = runner->run(from.data(), static_cast<int>(from.size()), to.data(), static_cast<int>(to.size()));
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& e) {
            throw nolk::ModelError(std::string("the run failed: ") + e.what());
        }
        if (isDone) return;
        const std::string messages = takeMessages();
        throw nolk::ModelError("the run failed" + (messages.empty() ? "" : ": " + messages));
    }

    nolk::Owned<nolk::Runner> runner;
    const pid_t process;  // of the runner's threads; 0: it has none
    std::atomic<bool> isRunning{false};

    // Used by the call that has set isRunning. They stay, so that later runs allocate nothing.
    std::vector<nolk::Tensor> in, out;
    Buffers inBuffers, outBuffers;
};

Network::Network(const void* data, std::size_t size, const LoadOptions& options)
    : batch_(options.batch),
      shared_(options.shared),
      implementation_(options.implementation ? inFull(*options.implementation) : defaultImplementation()) {
    addForms([&] {
        const Unlocked unlocked;
        return nolk::inspectModel(data, size, {batch_, nolk::InspectionDepth::records, options.limits});
    }());
    const Unlocked unlocked;
    loaded_ = newLoaded(data, size, options);
}

std::shared_ptr<Network::Loaded> Network::newLoaded(const void* data, std::size_t size,
                                                    const LoadOptions& options) const {
    nolk::Owned<nolk::Runner> runner = load(data, size, implementation_, options);
    if (shared_ && !isDivisible_)
        throw nolk::ModelError("the network mixes samples, so its batch cannot be shared by several callers");
    if (shared_) runner = wrapForThreads(std::move(runner), batch_);
    return std::make_shared<Loaded>(std::move(runner), (shared_ && batch_ > 1) || mayHaveThreads(implementation_));
}

void Network::addForms(const nolk::ModelInfo& info) {
    inputs_ = formsOf(info, info.inputs, info.inputNames, "input");
    outputs_ = formsOf(info, info.outputs, info.outputNames, "output");
    isDivisible_ = !::mixesSamples(info, batch_);
}

std::shared_ptr<Network::Loaded> Network::requireLoaded() const {
    if (!loaded_) throw nolk::ModelError("the network is closed");
    if (!loaded_->isUsable()) throw nolk::ModelError("a network with threads works only in the process that loaded it");
    return loaded_;
}

std::vector<py::array> Network::requireInputs(py::handle list) const {
    const py::sequence arrays = requireList(list, inputs_, "input", "inputs");
    std::vector<py::array> inputs;
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        // The first input tells the number of samples.
        const py::ssize_t n = !isDivisible_ ? inputs_[i].shape.n : inputs.empty() ? -1 : inputs[0].shape(0);
        inputs.push_back(requireTensor(arrays[i], inputs_[i], n, false));
    }
    return inputs;
}

py::ssize_t Network::sampleCount(const std::vector<py::array>& inputs) const {
    return isDivisible_ ? inputs[0].shape(0) : batch_;
}

void Network::run(py::handle inputList, py::handle outputList) {
    std::shared_ptr<Loaded> loaded = requireLoaded();
    const std::vector<py::array> inputs = requireInputs(inputList);
    const py::sequence outputArrays = requireList(outputList, outputs_, "output", "out");
    std::vector<py::array> outputs;
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
        const py::ssize_t n = isDivisible_ ? sampleCount(inputs) : outputs_[i].shape.n;
        outputs.push_back(requireTensor(outputArrays[i], outputs_[i], n, true));
    }
    requireDistinct(inputs, outputs);
    runArrays(std::move(loaded), inputs, outputs);
}

py::object Network::call(const py::args& inputArrays) {
    std::shared_ptr<Loaded> loaded = requireLoaded();
    const std::vector<py::array> inputs = requireInputs(inputArrays);
    std::vector<py::array> outputs;
    for (const ArrayForm& form : outputs_) {
        const py::ssize_t n = isDivisible_ ? sampleCount(inputs) : form.shape.n;
        outputs.push_back(py::array_t<float>(form.extents(n)));
    }
    runArrays(std::move(loaded), inputs, outputs);
    if (outputs.size() == 1) return outputs[0];
    py::tuple all(outputs.size());
    for (std::size_t i = 0; i < outputs.size(); ++i) all[i] = outputs[i];
    return std::move(all);
}

void Network::runArrays(std::shared_ptr<Loaded> loaded, const std::vector<py::array>& inputs,
                        const std::vector<py::array>& outputs) const {
    const Samples samples{dataOf(inputs), dataOf(outputs), sampleCount(inputs)};

    Unlocked unlocked;
    if (shared_)
        runShared(*loaded, samples, unlocked);
    else
        runAlone(*loaded, samples, unlocked);
    loaded.reset();  // while unlocked: this may be the last user
}

void Network::runShared(Loaded& loaded, const Samples& samples, Unlocked& unlocked) const {
    std::vector<nolk::Tensor> inTensors, outTensors;
    for (py::ssize_t first = 0; first < samples.n; first += kBatchesOfSharedCall * batch_) {
        if (first > 0) unlocked.handleSignals();
        const auto count = static_cast<int>(std::min<py::ssize_t>(samples.n - first, kBatchesOfSharedCall * batch_));
        pointTo(inTensors, inputs_, samples.in, first, count);
        pointTo(outTensors, outputs_, samples.out, first, count);
        loaded.run(inTensors, outTensors);
    }
}

void Network::runAlone(Loaded& loaded, const Samples& samples, Unlocked& unlocked) const {
    if (loaded.isRunning.exchange(true))
        throw nolk::ModelError("the network is running in another thread; load it with shared=True for several");
    const std::unique_ptr<std::atomic<bool>, void (*)(std::atomic<bool>*)> running(
        &loaded.isRunning, [](std::atomic<bool>* flag) { flag->store(false); });
    if (!isDivisible_) {
        pointTo(loaded.in, inputs_, samples.in, 0, kWholeBatch);
        pointTo(loaded.out, outputs_, samples.out, 0, kWholeBatch);
        return loaded.run(loaded.in, loaded.out);
    }
    for (py::ssize_t first = 0; first < samples.n; first += batch_) {
        if (first > 0) unlocked.handleSignals();
        if (samples.n - first < batch_) return runLast(loaded, samples, first);
        pointTo(loaded.in, inputs_, samples.in, first, batch_);
        pointTo(loaded.out, outputs_, samples.out, first, batch_);
        loaded.run(loaded.in, loaded.out);
    }
}

// Fewer samples than a batch: they are copied to a batch whose other samples are zeros.
void Network::runLast(Loaded& loaded, const Samples& samples, py::ssize_t first) const {
    const py::ssize_t count = samples.n - first;
    const Data inBatch = buffersFor(loaded.inBuffers, inputs_, batch_);
    const Data outBatch = buffersFor(loaded.outBuffers, outputs_, batch_);
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        const std::size_t size = inputs_[i].sampleSize(), used = size * static_cast<std::size_t>(count);
        std::copy_n(samples.in[i] + static_cast<std::size_t>(first) * size, used, inBatch[i]);
        std::fill(inBatch[i] + used, inBatch[i] + size * static_cast<std::size_t>(batch_), 0.0f);
    }
    pointTo(loaded.in, inputs_, inBatch, 0, batch_);
    pointTo(loaded.out, outputs_, outBatch, 0, batch_);
    loaded.run(loaded.in, loaded.out);
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
        const std::size_t size = outputs_[i].sampleSize();
        std::copy_n(outBatch[i], size * static_cast<std::size_t>(count),
                    samples.out[i] + static_cast<std::size_t>(first) * size);
    }
}

void Network::close() {
    std::shared_ptr<Loaded> loaded = std::move(loaded_);
    if (!loaded) return;
    const Unlocked unlocked;
    loaded.reset();
}
