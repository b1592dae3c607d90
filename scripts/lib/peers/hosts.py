"""Programs that run one model each on request: bench/peers/nolkHost.cpp and onnxRuntimeHost.js.

    host = NolkHost(tools, "NolkRaw", 2, model)
    seconds = host.load(); microseconds = host.run(20); host.close()

A host works on one request at a time, and after settle() not at all.
"""
import os
import pathlib
import subprocess
import time


class Host:
    def __init__(self, threads, *command):
        self.threads = threads
        self.process = subprocess.Popen([str(part) for part in command], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True)
        self.memory_before = self.memory()[0]  # of the program and its libraries

    def ask(self, *words):
        try:
            self.process.stdin.write(" ".join(str(word) for word in words) + "\n")
            self.process.stdin.flush()
            line = self.process.stdout.readline()
        except BrokenPipeError:
            line = ""
        if not line:
            raise RuntimeError(self.process.communicate()[1].strip() or "the host ended")
        return line.split()

    def load(self):
        return float(self.ask("load")[0])

    def run(self, times):
        return [float(word) for word in self.ask("run", times)]

    def write(self, path):
        self.ask("write", path)

    def memory(self):
        """Bytes in use now, and the most so far."""
        return [int(word) for word in self.ask("memory")]

    def nanoseconds(self):
        """Time on a processor so far, of each thread."""
        tasks = pathlib.Path(f"/proc/{self.process.pid}/task").iterdir()
        return {int(task.name): int((task / "schedstat").read_text().split()[0]) for task in tasks}

    def settle(self):
        """Waits until no thread works any more: those of ONNX Runtime spin for a while after a run."""
        for _ in range(500):
            before = sum(self.nanoseconds().values())
            time.sleep(0.002)
            if sum(self.nanoseconds().values()) == before:
                return
        raise RuntimeError("the host does not come to rest")

    def pin(self, times):
        """Runs, then gives each of the threads that worked a processor of its own. Threads of one run stay free."""
        before = self.nanoseconds()
        self.run(times)
        used = {thread: after - before.get(thread, after) for thread, after in self.nanoseconds().items()}
        busy = [thread for thread in sorted(used) if used[thread] > 0.2 * max(used.values())]
        if len(busy) == self.threads:
            for thread, processor in zip(busy, sorted(os.sched_getaffinity(0))):
                os.sched_setaffinity(thread, {processor})

    def close(self):
        self.process.stdin.close()
        self.process.wait()


class NolkHost(Host):
    def __init__(self, tools, implementation, threads, model):
        super().__init__(threads, tools.nolk_host, f"{implementation}:num_threads={threads}", model.converted,
                         model.nolk_shapes("inputs"), model.nolk_shapes("outputs"), model.input_file)
        self.model = model

    def shapes(self):
        """The shapes of the outputs."""
        return [output["shape"] for output in self.model.info["outputs"]]

    def peak(self, seconds):
        """GFLOP/s that one core reaches for so many seconds with multiply-adds in registers."""
        return float(self.ask(f"peak {seconds}")[0])


class OnnxRuntimeHost(Host):
    def __init__(self, tools, threads, model):
        script = pathlib.Path(__file__).with_name("onnxRuntimeHost.js")
        super().__init__(threads, "node", script, tools.node_modules, threads, model.onnx, model.input_shape,
                         model.input_file)

    def shapes(self):
        """The shapes of the outputs, after a run."""
        return [tuple(int(n) for n in text.split("x")) for text in self.ask("shapes")[0].split(",")]
