#!/usr/bin/python3
"""Reads many handwritten digits on a cluster, and compares the result with that of one process.

Starts a scheduler and workers as processes on this machine. On many machines the same programs are started there, and
the rest stays as it is: docs/cluster.md.
"""

import argparse
import signal
import subprocess
import sys
import tempfile
import threading
import time
import uuid
from collections.abc import Iterator
from contextlib import ExitStack, contextmanager
from pathlib import Path

import dask.array
import numpy
import psutil
from dask.distributed import Client, futures_of, progress, wait

import nolk
import nolk.dask

DIGITS = Path(__file__).resolve().parent.parent / "digits"
START_SECONDS = 60  # for a scheduler, and for workers
SHIFTS = sorted(((y, x) for y in range(-2, 3) for x in range(-2, 3)), key=lambda shift: abs(shift[0]) + abs(shift[1]))


def known_pictures(path: str) -> numpy.ndarray:
    """uint8 [500, 1, 28, 28]"""
    return numpy.frombuffer(Path(path).read_bytes(), numpy.uint8, offset=16).reshape(-1, 1, 28, 28)


def pictures(path: str, first: int, last: int) -> numpy.ndarray:
    """float32 [last - first, 1, 28, 28]: the known pictures, over and over, each time shifted in another way."""
    known = known_pictures(path)
    parts = []
    for start in range(first - first % len(known), last, len(known)):
        shift = SHIFTS[start // len(known) % len(SHIFTS)]
        parts.append(numpy.roll(known[max(first - start, 0) : last - start], shift, axis=(2, 3)))
    return numpy.concatenate(parts) / numpy.float32(255)


def lazy_pictures(path: str, count: int, block: int) -> dask.array.Array:
    """The same as a Dask array, whose blocks the workers make themselves.

    Its name is new, since Dask takes results of an array of the same name from an earlier round.
    """

    def make(block_id: tuple[int, ...]) -> numpy.ndarray:
        first = block_id[0] * block
        return pictures(path, first, min(first + block, count))

    chunks = dask.array.core.normalize_chunks((block, 1, 28, 28), (count, 1, 28, 28))
    name, meta = f"pictures-{uuid.uuid4().hex}", numpy.empty((0,) * 4, numpy.float32)
    return dask.array.map_blocks(make, name=name, chunks=chunks, dtype=numpy.float32, meta=meta)


def read_alone(model: Path, path: str, count: int, block: int, batch: int) -> numpy.ndarray:
    scores = numpy.empty((count, 10), numpy.float32)
    with nolk.load(model, batch=batch) as net:
        for first in range(0, count, block):
            last = min(first + block, count)
            net.run([pictures(path, first, last)], out=[scores[first:last]])
    return scores


@contextmanager
def program(log: Path, module: str, *arguments: str) -> Iterator[subprocess.Popen]:
    """A scheduler or worker as a process, whose messages go to a file."""
    command = [sys.executable, "-m", f"distributed.cli.{module}", *arguments]
    with log.open("w") as messages:
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=messages, start_new_session=True)
    try:
        yield process
    finally:
        process.terminate()
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def wait_for_file(path: Path, process: subprocess.Popen) -> None:
    """Waits until the process has written the file."""
    end = time.monotonic() + START_SECONDS
    while not path.exists():
        if process.poll() is not None:
            raise RuntimeError(f"the scheduler ended with status {process.returncode}")
        if time.monotonic() > end:
            raise TimeoutError(f"the scheduler did not start within {START_SECONDS} s")
        time.sleep(0.05)


class Cluster:
    """A scheduler, workers of one thread each, and a client of them."""

    def __init__(self, stack: ExitStack, workers: int, has_dashboard: bool) -> None:
        self.folder = Path(stack.enter_context(tempfile.TemporaryDirectory()))
        stack.push(self._print_messages_of_failure)  # called when the processes have ended
        meeting_point = self.folder / "scheduler.json"
        address = ["--host", "127.0.0.1", "--scheduler-file", str(meeting_point)]
        dashboard = ["--dashboard-address", "127.0.0.1:8787"] if has_dashboard else ["--no-dashboard"]
        single = ["--nthreads", "1", "--no-nanny", "--no-dashboard", "--local-directory", str(self.folder)]
        log = self.folder / "scheduler.log"
        self.scheduler = stack.enter_context(program(log, "dask_scheduler", *address, "--port", "0", *dashboard))
        wait_for_file(meeting_point, self.scheduler)
        self.workers = [
            stack.enter_context(program(self.folder / f"worker-{i}.log", "dask_worker", *address, *single))
            for i in range(workers)
        ]
        self.client = stack.enter_context(Client(scheduler_file=str(meeting_point), timeout=START_SECONDS))
        self.client.wait_for_workers(workers, timeout=START_SECONDS)

    def _print_messages_of_failure(self, kind: type | None, error: BaseException | None, traceback: object) -> None:
        if isinstance(error, Exception):
            for log in sorted(self.folder.glob("*.log")):
                print(f"{log.name}:\n{log.read_text()}", file=sys.stderr)

    def processor_seconds(self) -> tuple[float, float]:
        """Of all workers, and of the scheduler."""
        workers = (psutil.Process(worker.pid).cpu_times() for worker in self.workers)
        scheduler = psutil.Process(self.scheduler.pid).cpu_times()
        return sum(times.user + times.system for times in workers), scheduler.user + scheduler.system


def kill_half_way(scores: dask.array.Array, worker: subprocess.Popen) -> threading.Thread:
    """Kills the worker as soon as half of the blocks are done."""
    blocks = futures_of(scores)

    def wait_and_kill() -> None:
        while (done := sum(block.done() for block in blocks)) < len(blocks) / 2:
            time.sleep(0.01)
        worker.send_signal(signal.SIGKILL)
        print(f"\nkilled worker {worker.pid} when {done} of {len(blocks)} blocks were done")

    thread = threading.Thread(target=wait_and_kill, daemon=True)  # a failed job must not wait for it
    thread.start()
    return thread


def read_on_cluster(cluster: Cluster, lazy: dask.array.Array, options: argparse.Namespace) -> numpy.ndarray:
    scores = nolk.dask.predict(DIGITS / "digits.cm", lazy, batch=options.batch, client=cluster.client)
    scores = cluster.client.persist(scores)
    killing = kill_half_way(scores, cluster.workers[0]) if options.kill else None
    progress(scores, notebook=False)
    print()
    result = scores.compute()
    if killing:
        killing.join()
    return result


def read_digits(cluster: Cluster, options: argparse.Namespace) -> bool:
    """The job, in turns with one process: whether the cluster always gives what that gives."""
    count, model, path = options.pictures, DIGITS / "digits.cm", str(DIGITS / "test-images.idx")
    block = max(1, options.block // options.batch) * options.batch
    digits = numpy.frombuffer((DIGITS / "test-labels.idx").read_bytes(), numpy.uint8, offset=8)
    alone_seconds, alone_processor, seconds, processor = [], [], [], []
    is_same = True
    for _ in range(options.rounds):
        start, before = time.perf_counter(), time.process_time()
        alone = read_alone(model, path, count, block, options.batch)
        alone_seconds.append(time.perf_counter() - start)
        alone_processor.append(time.process_time() - before)

        start, before = time.perf_counter(), cluster.processor_seconds()
        result = read_on_cluster(cluster, lazy_pictures(path, count, block), options)
        seconds.append(time.perf_counter() - start)
        if not options.kill:
            processor.append(numpy.subtract(cluster.processor_seconds(), before))
        is_same = is_same and result.shape == alone.shape and result.tobytes() == alone.tobytes()

    one, many = numpy.median(alone_seconds), numpy.median(seconds)
    print(f"one process: {count / one:.0f} per second, {numpy.median(alone_processor):.2f} s of processor time")
    print(f"{options.workers} workers: {count / many:.0f} per second, {one / many:.2f} times one process")
    if processor:
        print("processor time: workers {:.2f} s, scheduler {:.2f} s".format(*numpy.median(processor, axis=0)))
    right = (result.argmax(axis=1) == numpy.resize(digits, count)).sum()
    print(f"{right} of {count} right, {right / count:.1%}")
    print("every picture has the result of the single process" if is_same else "the results differ")
    return is_same


def loopback_bytes() -> int:
    with open("/proc/net/dev") as interfaces:
        return next(int(line.split()[1]) for line in interfaces if line.strip().startswith("lo:"))


def measure_tasks(cluster: Cluster, count: int) -> None:
    """What a task costs besides its own work: blocks of a single picture, whose work is next to nothing."""
    lazy = lazy_pictures(str(DIGITS / "test-images.idx"), count, 1)
    scores = nolk.dask.predict(DIGITS / "digits.cm", lazy, batch=1, client=cluster.client)
    (_, processor), data, start = cluster.processor_seconds(), loopback_bytes(), time.perf_counter()
    wait(cluster.client.persist(scores))
    seconds = time.perf_counter() - start
    processor, data = cluster.processor_seconds()[1] - processor, loopback_bytes() - data
    print(f"{count} tasks: {count / seconds:.0f} tasks per second, {data / count:.0f} bytes per task,")
    print(f"{processor / count * 1e6:.0f} us of the scheduler's processor time per task")


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--pictures", type=int, default=100_000, metavar="N", help="default: 100000")
    parser.add_argument("--workers", type=int, default=2, metavar="N", help="default: 2")
    parser.add_argument("--batch", type=int, default=16, metavar="N", help="default: 16")
    parser.add_argument("--block", type=int, default=1000, metavar="N", help="pictures of one task, default: 1000")
    parser.add_argument("--rounds", type=int, default=1, metavar="N", help="repeat it, and print medians")
    parser.add_argument("--kill", action="store_true", help="kill a worker half way")
    parser.add_argument("--tasks", type=int, metavar="N", help="measure instead what N tasks cost the scheduler")
    parser.add_argument("--dashboard", action="store_true", help="show what happens at http://127.0.0.1:8787")
    options = parser.parse_args()
    if min(options.workers, options.rounds, options.pictures, options.batch) < 1:
        parser.error("expected numbers of 1 or more")
    if options.kill and (options.workers < 2 or options.rounds > 1):
        parser.error("--kill needs 2 workers, one of which goes on, and a single round")
    return options


def main() -> int:
    options = arguments()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))  # so that the processes end, too
    with ExitStack() as stack:
        cluster = Cluster(stack, options.workers, options.dashboard)
        if options.tasks:
            measure_tasks(cluster, options.tasks)
            return 0
        if not read_digits(cluster, options):
            raise RuntimeError("the cluster's results are not those of the single process")
    return 0


if __name__ == "__main__":
    sys.exit(main())
