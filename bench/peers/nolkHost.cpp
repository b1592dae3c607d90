// Runs one model on request, so that scripts/bench-peers can time nolk in turn with other runtimes.
//   nolk_peer_host IMPLEMENTATION MODEL INPUT_SHAPES OUTPUT_SHAPES INPUT_FILE...
// Shapes are like 1x3x224x224x3, with dims last and commas between them; input files hold floats. The host reads
// commands from standard input and answers each with one line:
//   load        loads the model again; seconds
//   run N       runs it N times; microseconds of every run, without input and output of this program
//   write PATH  writes all outputs to PATH as floats; their number
//   memory      bytes that the process uses now, and the most it has used
//   peak S      GFLOP/s that one core reaches for S seconds with multiply-adds in registers
// Uses libnolk alone. A failure is printed to standard error and ends the program.
#include <nolk.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "peakRate.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

struct Destroy {
    template <class T>
    void operator()(T* object) const {
        object->destroy();
    }
};
template <class T>
using Owned = std::unique_ptr<T, Destroy>;

// Tensors and their floats.
class Tensors {
public:
    explicit Tensors(const std::string& shapes) {
        std::istringstream list(shapes);
        for (std::string text; std::getline(list, text, ',');) add(text);
    }

    void readFrom(char** files) {
        for (std::size_t i = 0; i < values_.size(); ++i) {
            std::ifstream file(files[i], std::ios::binary);
            if (!file.read(reinterpret_cast<char*>(values_[i].data()), bytesOf(i)))
                throw std::runtime_error(std::string(files[i]) + ": too short");
        }
    }

    std::size_t writeTo(const std::string& path) const {
        std::ofstream file(path, std::ios::binary);
        std::size_t count = 0;
        for (std::size_t i = 0; i < values_.size(); ++i) {
            file.write(reinterpret_cast<const char*>(values_[i].data()), bytesOf(i));
            count += values_[i].size();
        }
        if (!file.flush()) throw std::runtime_error(path + ": cannot be written");
        return count;
    }

    nolk::Tensor* data() { return views_.data(); }
    int count() const { return static_cast<int>(views_.size()); }
    int batch() const { return views_.at(0).shape.n; }

private:
    void add(const std::string& text) {
        nolk::TensorShape s;
        char x = 0;
        std::istringstream numbers(text);
        if (!(numbers >> s.n >> x >> s.c >> x >> s.h >> x >> s.w >> x >> s.dims))
            throw std::runtime_error(text + ": no shape");
        values_.emplace_back(static_cast<std::size_t>(s.n) * s.c * s.h * s.w);
        views_.push_back({s, values_.back().data()});  // stays valid: moving a vector does not move its floats
    }

    std::streamsize bytesOf(std::size_t i) const {
        return static_cast<std::streamsize>(values_[i].size() * sizeof(float));
    }

    std::vector<std::vector<float>> values_;
    std::vector<nolk::Tensor> views_;
};

class Host {
public:
    explicit Host(char** arguments)
        : implementation_(arguments[0]), model_(arguments[1]), inputs_(arguments[2]), outputs_(arguments[3]) {
        inputs_.readFrom(arguments + 4);
    }

    void answer(const std::string& command, std::istream& arguments) {
        if (command == "load") return load();
        if (command == "memory") return memory();
        if (double seconds = 0; command == "peak" && arguments >> seconds) {
            std::cout << peakRate(seconds) << std::endl;
            return;
        }
        if (std::string path; command == "write" && arguments >> path) {
            std::cout << outputs_.writeTo(path) << std::endl;
            return;
        }
        if (int times = 0; command == "run" && arguments >> times) return run(times);
        throw std::runtime_error("unknown command " + command);
    }

private:
    void load() {
        runner_.reset();
        const Clock::time_point start = Clock::now();
        const Owned<nolk::ModelReader> reader(nolk_new_model_reader());
        const Owned<nolk::RunnerBuilder> builder(nolk_new_runner_builder(implementation_.c_str()));
        if (reader && builder) runner_.reset(reader->readFromFile(builder.get(), inputs_.batch(), model_.c_str()));
        if (!runner_) throw std::runtime_error(model_ + ": cannot be loaded by " + implementation_);
        std::cout << secondsSince(start) << std::endl;
    }

    void run(int times) {
        std::vector<double> seconds;
        for (int i = 0; i < times; ++i) {
            const Clock::time_point start = Clock::now();
            if (!runner_->run(inputs_.data(), inputs_.count(), outputs_.data(), outputs_.count()))
                throw std::runtime_error(model_ + ": the run failed");
            seconds.push_back(secondsSince(start));
        }
        for (const double s : seconds) std::cout << s * 1e6 << ' ';
        std::cout << std::endl;
    }

    static void memory() {
        long now = 0, most = 0;  // in kibibytes
        std::ifstream status("/proc/self/status");
        for (std::string word; status >> word;) {
            if (word == "VmRSS:") status >> now;
            if (word == "VmHWM:") status >> most;
        }
        std::cout << now * 1024 << ' ' << most * 1024 << std::endl;
    }

    std::string implementation_, model_;
    Tensors inputs_, outputs_;
    Owned<nolk::Runner> runner_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 6) {
        std::cerr << "usage: nolk_peer_host IMPLEMENTATION MODEL INPUT_SHAPES OUTPUT_SHAPES INPUT_FILE...\n";
        return 2;
    }
    try {
        Host host(argv + 1);
        for (std::string line; std::getline(std::cin, line);) {
            std::istringstream words(line);
            std::string command;
            words >> command;
            host.answer(command, words);
        }
    } catch (const std::exception& e) {
        std::cerr << "nolk_peer_host: " << e.what() << "\n";
        return 1;
    }
}
