"""Markdown tables of what measure.py found. Results are a dictionary: (name of a runtime, threads) -> Result."""
import datetime
import pathlib
import re
import statistics
import subprocess


def processor():
    text = pathlib.Path("/proc/cpuinfo").read_text()
    names = re.findall(r"^(?:model name|CPU part)\s*: (.*)$", text, re.M)
    flags = re.search(r"^flags\s*: (.*)$", text, re.M)
    level = "AVX-512" if flags and "avx512f" in flags[1].split() else "AVX2" if flags else "no AVX"
    return f"{names[0] if names else 'unknown processor'}, {len(names)} cores, {level}"


def heading(versions, nothing, arguments):
    """nothing: the results of a network that does nothing."""
    costs = [f"{name} {result.median:.1f} us" for (name, threads), result in nothing.items()
             if threads == arguments.threads[0]]
    return (f"{processor()}; {datetime.date.today()}; {versions}. Batch {arguments.batch}, medians, {arguments.rounds} "
            f"rounds. A run of a network that does nothing takes {', '.join(costs)}; ORT's time, which includes "
            "Node.js's, is subtracted. Memory is the peak of the process less that with the same network.\n")


def table(columns, rows):
    lines = ["| " + " | ".join(columns) + " |", "|---|" + "---:|" * (len(columns) - 1)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"


class Report:
    def __init__(self, names, threads):
        self.names, self.threads = names, threads
        self.reference = "ORT" if "ORT" in names else names[0]
        self.compared = [name for name in names if name != self.reference]

    def _ratios(self, results, threads):
        return [results[name, threads].median / results[self.reference, threads].median for name in self.compared]

    def times(self, all_results):
        """Milliseconds, ratios, and their geometric means."""
        columns = ["network", "threads"] + [f"{name}, ms" for name in self.names]
        columns += [f"{name} / {self.reference}" for name in self.compared]
        rows = []
        for network, results in all_results.items():
            for threads in self.threads:
                row = [network, str(threads)] + [f"{results[n, threads].median / 1e3:.2f}" for n in self.names]
                rows.append(row + [f"{ratio:.2f}" for ratio in self._ratios(results, threads)])
        for threads in self.threads:
            columns_of_ratios = zip(*(self._ratios(results, threads) for results in all_results.values()))
            means = [statistics.geometric_mean(column) for column in columns_of_ratios]
            rows.append(["geometric mean", str(threads)] + [""] * len(self.names) + [f"{mean:.2f}" for mean in means])
        return table(columns, rows)

    def costs(self, all_results):
        """Loading, memory and differences with the fewest threads, and what the most threads bring."""
        few, many = self.threads[0], self.threads[-1]
        columns = ["network"] + [f"{n}: load, ms" for n in self.names] + [f"{n}: memory, MB" for n in self.names]
        columns += [f"{n}: {few} / {many} threads" for n in self.names] if few != many else []
        columns += [f"{n}: difference" for n in self.compared]
        rows = []
        for network, results in all_results.items():
            row = [network] + [f"{results[n, few].load * 1e3:.1f}" for n in self.names]
            row += [f"{results[n, few].memory / 1e6:.1f}" for n in self.names]
            if few != many:
                row += [f"{results[n, few].median / results[n, many].median:.2f}" for n in self.names]
            rows.append(row + [f"{max(results[n, t].difference for t in self.threads):.0e}" for n in self.compared])
        return table(columns, rows)

    def layers(self, all_results, gflops):
        """One layer of each chain of eight, and the share of what the cores sustain."""
        columns = ["layer", "threads"] + [f"{n}, us" for n in self.names]
        columns += [f"{n} / {self.reference}" for n in self.compared]
        columns += [f"{n}, of peak {kind}" for n in self.names for kind in ("in registers", "with loads")]
        rows = []
        for chain, results in all_results.items():
            for threads in self.threads:
                row = [chain, str(threads)] + [f"{results[n, threads].median / 8:.1f}" for n in self.names]
                row += [f"{ratio:.2f}" for ratio in self._ratios(results, threads)]
                shares = [share for n in self.names for share in results[n, threads].shares(gflops[chain])]
                rows.append(row + [f"{100 * share / threads:.0f} %" for share in shares])
        if not rows:
            return table(columns, rows)
        peaks = [rates for results in all_results.values() for result in results.values() for rates in result.peaks]
        registers, loads = ([min(rates), max(rates)] for rates in zip(*peaks))
        return table(columns, rows) + (
            f"\nPeaks of one core, measured before each turn for as long: {registers[0]:.0f} to {registers[1]:.0f} "
            f"GFLOP/s in multiply-adds of registers, {loads[0]:.0f} to {loads[1]:.0f} if they load their operands from "
            "the first cache as a convolution does.\n")


def version_of(program, *arguments):
    done = subprocess.run([str(program), *arguments], capture_output=True, text=True)
    return done.stdout.strip().splitlines()[0] if done.stdout else "unknown"


def is_close(all_results, limit):
    return all(r.difference <= limit for results in all_results.values() for r in results.values())
