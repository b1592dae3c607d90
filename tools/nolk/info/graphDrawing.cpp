#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "inspect/format.h"
#include "nolk/info/drawings.h"
#include "nolk/output.h"

namespace {

// A quoted string in Graphviz's language; "\n" breaks the line.
std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '\n') {
            result += "\\n";
            continue;
        }
        if (c == '"' || c == '\\') result += '\\';
        result += c;
    }
    return result + "\"";
}

std::string nodeName(int place) { return "r" + std::to_string(place); }

std::string nodeLabel(const nolk::ModelInfo& info, const nolk::ModelOperation& operation) {
    std::string label = operation.name + " #" + std::to_string(operation.record);
    if (!operation.details.empty()) label += "\n" + operation.details;
    if (operation.parameterCount > 0) label += "\n" + counted(operation.parameterCount, "parameter");
    if (operation.isFused && operation.layer >= 0) {
        const int into = info.layers[static_cast<std::size_t>(operation.layer)].operation;
        label += "\nfused into #" + std::to_string(info.operations[static_cast<std::size_t>(into)].record);
    }
    return label;
}

const char* nodeStyle(const nolk::ModelOperation& operation) {
    if (operation.name == "input") return "shape=ellipse, fillcolor=\"#d9ead3\"";
    if (operation.name == "constTensor") return "shape=ellipse, fillcolor=\"#fff2cc\"";
    if (operation.isFused) return "fillcolor=\"#f3f3f3\", style=\"rounded,filled,dashed\", fontcolor=\"#666666\"";
    return operation.parameterCount > 0 ? "fillcolor=\"#cfe2f3\"" : "fillcolor=\"#ffffff\"";
}

std::string edge(const nolk::ModelInfo& info, int from, const std::string& to) {
    const nolk::TensorShape& shape = info.operations[static_cast<std::size_t>(from)].output;
    return "  " + nodeName(from) + " -> " + to + " [label=" + quoted(" " + shapeText(shape)) + "];\n";
}

struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Closer>;

File temporaryFile() {
    File file(std::tmpfile());
    if (!file) throw std::runtime_error(std::string("temporary file: ") + std::strerror(errno));
    return file;
}

std::string contentOf(std::FILE* file) {
    std::string content;
    char part[4096];
    std::rewind(file);
    for (std::size_t n; (n = std::fread(part, 1, sizeof part, file)) > 0;) content.append(part, n);
    return content;
}

// Runs dot with these files as its standard input and output, without a shell. Returns its exit status.
int runDot(std::FILE* in, std::FILE* out) {
    char name[] = "dot", format[] = "-Tsvg";
    char* const arguments[] = {name, format, nullptr};
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, fileno(in), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files, fileno(out), STDOUT_FILENO);
    pid_t child = 0;
    const int error = posix_spawnp(&child, name, &files, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&files);
    int status = 0;
    if (error != 0) throw std::runtime_error("dot: not found; it is in the package graphviz");
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

}  // namespace

std::string graphSource(const std::string& path, const nolk::ModelInfo& info) {
    std::string source =
        "digraph " + quoted(printable(path)) +
        " {\n"
        "  node [shape=box, style=\"rounded,filled\", color=\"#666666\", fontname=\"Helvetica\", fontsize=11];\n"
        "  edge [color=\"#666666\", fontname=\"Helvetica\", fontsize=9, arrowsize=0.7];\n";
    const auto& operations = info.operations;
    for (std::size_t i = 0; i < operations.size(); ++i) {
        const int place = static_cast<int>(i);
        source += "  " + nodeName(place) + " [label=" + quoted(nodeLabel(info, operations[i])) + ", " +
                  nodeStyle(operations[i]) + "];\n";
        for (const int from : operations[i].inputs)
            if (from >= 0) source += edge(info, from, nodeName(place));
    }
    for (std::size_t i = 0; i < info.outputs.size(); ++i) {
        const std::string name = "output" + std::to_string(i);
        source += "  " + name + " [label=" + quoted("output " + std::to_string(i)) +
                  ", shape=ellipse, fillcolor=\"#f4cccc\"];\n" + edge(info, info.outputs[i], name);
    }
    return source + "}\n";
}

std::string graphSvg(const std::string& source) {
    const File in = temporaryFile(), out = temporaryFile();
    std::fwrite(source.data(), 1, source.size(), in.get());
    std::rewind(in.get());
    const int status = runDot(in.get(), out.get());
    if (status != 0) throw std::runtime_error("dot: failed with exit status " + std::to_string(status));
    return contentOf(out.get());
}
