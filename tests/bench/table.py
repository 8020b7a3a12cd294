#!/usr/bin/env python3
"""Prints what the benchmarks measured beside the limits; exit status 1 when one does not hold.

table.py DIRECTORY

DIRECTORY holds the programs' results (*.json, of Google Benchmark) and the instruction counts
(*/callgrind.out.*). The table is written to DIRECTORY/table.md as well.
"""
import argparse
import glob
import json
import os
import re
import statistics
import sys
from dataclasses import dataclass, field

COUNTED_RUNS = 100  # of each case under callgrind


@dataclass
class Row:
    """Ours must cost at most `limit` times (log lines x F + the sum of weight x peer)."""
    name: str
    limit: float
    peers: dict = field(default_factory=dict)
    instructions: int = 0  # at most, 0 for any number
    clock: str = "cpu_time"


ROWS = [
    Row("pack 160 septets", 0.5, {"osmocom": 1}, 4000),
    Row("unpack 160 septets", 0.5, {"gammu": 1}, 4200),
    Row("UCS-2 to GSM, ASCII", 0.75, {"osmocom": 1}),
    Row("UCS-2 to GSM, mixed", 0.75, {"osmocom": 1}),
    Row("GSM to UCS-2", 1.0, {"gammu": 1}),
    Row("SUBMIT 160, log off", 0.5, {"osmocom": 1}, 7500),
    Row("SUBMIT 160", 1.25, {"osmocom": 1}),
    Row("SUBMIT, three segments", 1.25, {"osmocom": 1}),
    Row("SUBMIT, UCS-2", 1.25, {"gammu": 0.12}),
    Row("DELIVER 160", 1.25, {"gammu": 0.20}),
    Row("DELIVER, UCS-2 with header", 1.25, {"gammu": 0.59}),
    Row("STATUS-REPORT", 1.25, {"gammu": 0.05}),
    Row("hex to 176 octets", 0.75, {"osmocom": 1}),
    Row("176 octets to hex", 0.75, {"osmocom": 1}),
    Row("UCS-2 to UTF-8, 70", 0.4, {"iconv": 1}),
    Row("UTF-8 to UCS-2, 70", 0.5, {"gammu": 1}),
    Row("log line", 1.2),
    Row("writeComm", 1.25),
    Row("command, whole road", 1.5, {"socket": 1, "pty": 1}, clock="trip"),
]
BARE_LINE = "log line/bare"  # F
GROWTH_LIMIT = 1.25  # one of the most, beside the cheapest one of fewer


class Results:
    """Medians over all repetitions, and instructions of one run, by case."""

    def __init__(self, directory):
        times, self.lines, self.context = {}, {}, {}
        road = {}
        for path in sorted(glob.glob(os.path.join(directory, "*.json"))):
            with open(path, encoding="utf-8") as file:
                result = json.load(file)
            self.context = result["context"]
            for run in result["benchmarks"]:
                if run["run_type"] != "iteration":
                    continue
                case = run["run_name"]
                clock = "trip" if "trip" in run else "cpu_time"
                times.setdefault((case, clock), []).append(run[clock])
                self.lines[case] = int(run.get("logLines", 0))
                for figure in ("trip", "p99", "mean", "commands_per_second"):
                    if figure in run:
                        road.setdefault((case, figure), []).append(run[figure])
        self.road = {key: statistics.median(all_of_it) for key, all_of_it in road.items()}
        self.times = {key: statistics.median(all_of_it) for key, all_of_it in times.items()}
        self.repetitions = min(len(all_of_it) for all_of_it in times.values())
        self.instructions = counts(directory)

    def time(self, case, clock="cpu_time"):
        return self.times[case, clock]

    def peers(self, row):
        names = [case.split("/") for case, clock in self.times if clock == row.clock]
        return [whose for name, whose in names if name == row.name and whose != "ours"]


def counts(directory):
    found = {}
    for path in glob.glob(os.path.join(directory, "*", "callgrind.out.*")):
        with open(path, encoding="utf-8", errors="replace") as file:
            text = file.read()
        case = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.M)
        total = re.search(r"^totals: (\d+)", text, re.M)
        if case and total:
            found[case[1]] = int(total[1]) / COUNTED_RUNS
    return found


def duration(nanoseconds):
    if nanoseconds < 10_000:
        return f"{nanoseconds:,.0f} ns"
    return f"{nanoseconds / 1000:,.1f} µs"


def measure(row, results):
    """What ours is compared with: its time and how it is made up."""
    bare = results.time(BARE_LINE)
    if row.name == "log line":
        return bare, "F"
    lines = results.lines[f"{row.name}/ours"]
    terms = [f"{lines} F"] if lines else []
    total = lines * bare
    for peer, weight in row.peers.items():
        total += weight * results.time(f"{row.name}/{peer}", row.clock)
        terms.append(peer if weight == 1 else f"{weight:.2f} {peer}")
    return total, " + ".join(terms)


def instruction_text(row, results):
    ours = results.instructions.get(f"{row.name}/ours")
    if ours is None:
        return "", True
    text = f"{ours:,.0f}"
    if row.instructions:
        text += f" (at most {row.instructions:,})"
    for peer in row.peers:
        if f"{row.name}/{peer}" in results.instructions:
            text += f"; {peer} {results.instructions[f'{row.name}/{peer}']:,.0f}"
    return text, not row.instructions or ours <= row.instructions


def overloaded():
    return os.getloadavg()[0] > os.cpu_count()


def speed_rows(results):
    for row in ROWS:
        ours = results.time(f"{row.name}/ours", row.clock)
        other, made_of = measure(row, results)
        instructions, few = instruction_text(row, results)
        holds = ours <= row.limit * other and few
        verdict = "yes" if holds else "NO"
        if row.clock == "trip" and overloaded():
            holds, verdict = False, "?"
        yield holds, [row.name, duration(ours), made_of, duration(other), f"{ours / other:.2f}",
                      f"{row.limit:.2f}", verdict, instructions]


def growth_rows(results):
    kinds = {}
    for case, clock in results.times:
        match = re.fullmatch(r"(.*) (\d+)/growth", case)
        if match and clock == "cpu_time":
            kinds.setdefault(match[1], {})[int(match[2])] = results.time(case) / int(match[2])
    for kind, each in kinds.items():
        numbers = sorted(each)
        ratio = each[numbers[-1]] / min(each[number] for number in numbers[:-1])
        holds = ratio <= GROWTH_LIMIT
        course = ", ".join(f"{number}: {duration(each[number])}" for number in numbers)
        yield holds, [kind, course, f"{ratio:.2f}", f"{GROWTH_LIMIT:.2f}",
                      "yes" if holds else "NO"]


def peer_rows(results):
    for row in ROWS:
        for peer in results.peers(row):
            case = f"{row.name}/{peer}"
            count = results.instructions.get(case)
            yield [row.name, peer, duration(results.time(case, row.clock)),
                   f"{count:,.0f}" if count is not None else ""]


def road_rows(results):
    for case in dict.fromkeys(case for case, _ in results.road):
        if (case, "mean") not in results.road:
            yield [case, "", "", f"{results.road[case, 'commands_per_second']:,.0f}"]
            continue
        trip, p99, mean = (results.road[case, figure] for figure in ("trip", "p99", "mean"))
        yield [case, duration(trip), duration(p99), f"{1e9 / mean:,.0f}"]


def table(head, rows):
    rows = [head] + rows
    widths = [max(len(cell) for cell in column) for column in zip(*rows)]
    lines = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |"
             for row in rows]
    lines.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join(lines)


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        match = re.search(r"^model name\s*: (.*)$", file.read(), re.M)
    return match[1] if match else "unknown processor"


def footer(results):
    load = ", ".join(f"{value:.2f}" for value in os.getloadavg())
    return (f"Medians of {results.repetitions} interleaved repetitions; processor time, for the "
            "whole road elapsed time.\n"
            f"F = bare open, write, close and stat of a log line = "
            f"{duration(results.time(BARE_LINE))}. Instructions: user space, one run.\n"
            f"{processor()}, {results.context['num_cpus']} CPUs, load average {load}, "
            f"{results.context['date'][:16]}."
            + ("\nThe machine was busy: the whole road's elapsed times say nothing."
               if overloaded() else ""))


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("directory")
    directory = parser.parse_args().directory
    results = Results(directory)
    speed = list(speed_rows(results))
    growth = list(growth_rows(results))
    text = "\n\n".join([
        table(["case", "ours", "beside", "takes", "ratio", "limit", "holds", "instructions"],
              [cells for _, cells in speed]),
        table(["growth", "each of so many", "ratio", "limit", "holds"],
              [cells for _, cells in growth]),
        table(["road", "median", "99 of 100 within", "a second"], list(road_rows(results))),
        table(["case", "peer", "takes", "instructions"], list(peer_rows(results))),
        footer(results)])
    print(text)
    with open(os.path.join(directory, "table.md"), "w",
              encoding="utf-8") as file:
        file.write(text + "\n")
    return 0 if all(holds for holds, _ in speed + growth) else 1


if __name__ == "__main__":
    sys.exit(main())
