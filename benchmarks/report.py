#!/usr/bin/env python3
"""Runs the benchmarks and prints their ratios to the floors of the same run, beside what is aimed for.

Usage: report.py BENCHMARK_BINARY [ROUNDS]. Each figure is the median of several rounds that go through all benchmarks
in turn, a ratio that of the rounds' ratios. A missed aim is marked and no more: on a busy machine ratios stray.
Instructions are counted by callgrind and do not stray; without it they are left out."""

import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

USUAL_ROUNDS = 15
# Some processors' string instructions are several times slower when source and destination lie at certain distances, so
# that the place of a block would decide. glibc's other way of copying is as fast wherever they lie.
ENVIRONMENT = {**os.environ, "GLIBC_TUNABLES": "glibc.cpu.x86_rep_movsb_threshold=1000000000"}
UNITS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3}


def run(command):
    output = subprocess.run(command, check=True, capture_output=True, text=True, env=ENVIRONMENT).stdout
    rows = {}
    for row in json.loads(output)["benchmarks"]:
        if row.get("error_occurred"):
            sys.exit(f"{row['name']}: {row['error_message']}")
        rows[row["name"].replace("/manual_time", "").replace("/real_time", "")] = row
    return rows


def seconds(row):
    if "items_per_second" in row:
        return 1 / row["items_per_second"]
    return row.get("median_seconds", row["real_time"] * UNITS[row["time_unit"]])


def run_round(binary):
    rows = run([binary, "--benchmark_format=json", "--benchmark_min_time=0.02"])
    return {name: seconds(row) for name, row in rows.items()}


def instructions(binary, name):
    """Per frame, in a benchmark that makes a single iteration."""
    with tempfile.TemporaryDirectory() as folder:
        profile = pathlib.Path(folder) / "profile"
        row = run(["valgrind", "--quiet", "--tool=callgrind", "--toggle-collect=measured_part",
                   f"--callgrind-out-file={profile}", binary, f"--benchmark_filter=^{name}/manual_time$",
                   "--benchmark_format=json", "--benchmark_min_time=0.0000000001"])[name]
        if row["iterations"] != 1:
            sys.exit(f"{name}: more than one iteration was counted")
        return int(re.search(r"^totals: (\d+)", profile.read_text(), re.MULTILINE).group(1)) / row["frames"]


class Report:
    def __init__(self, rounds):
        self.rounds = rounds

    def time(self, name):
        return statistics.median(r[name] for r in self.rounds)

    def ratio(self, above, below):
        return statistics.median(r[above] / r[below] for r in self.rounds)

    def row(self, label, floor, measured, value, relation, aim):
        good = value >= aim if relation == ">=" else value <= aim
        print(f"{label:62} {self.time(floor) * 1e9:8.0f} ns {self.time(measured) * 1e9:8.0f} ns {value:7.2f}  "
              f"{relation} {aim}{'' if good else '  MISSED'}")

    def speed(self, label, floor, measured, aim):
        self.row(label, floor, measured, self.ratio(floor, measured), ">=", aim)

    def cost(self, label, floor, measured, aim, factor=1.0):
        self.row(label, floor, measured, factor * self.ratio(measured, floor), "<=", aim)


def show_instructions(binary):
    if not shutil.which("valgrind"):
        print("instructions per frame: left out, there is no valgrind")
        return
    print(f"\n{'instructions per frame':62} {'floor':>11} {'measured':>11} {'ratio':>7}  aim")
    for kind, floor in (("events", "batch"), ("replies", "record")):
        for payload in (0, 8, 64):
            least = instructions(binary, f"{floor}_floor/{payload}")
            measured = instructions(binary, f"engine_{kind}/{payload}")
            print(f"{f'{kind} against {floor} floor, payload {payload}':62} {least:11.0f} {measured:11.0f} "
                  f"{measured / least:7.2f}  <= 1.2{'  MISSED' if measured / least > 1.2 else ''}")


def main():
    binary = sys.argv[1]
    count = int(sys.argv[2]) if len(sys.argv) > 2 else USUAL_ROUNDS
    report = Report([run_round(binary) for _ in range(count)])

    print(f"{'':62} {'floor':>11} {'measured':>11} {'ratio':>7}  aim")
    for payload in (0, 8, 64, 1024, 16384):
        report.speed(f"engine, events against batch floor, payload {payload}", f"batch_floor/{payload}",
                     f"engine_events/{payload}", 0.9 if payload < 1024 else 0.95)
    for payload in (0, 8, 64, 1024, 16384):
        report.speed(f"engine, replies against record floor, payload {payload}", f"record_floor/{payload}",
                     f"engine_replies/{payload}", 0.9)
    report.cost("parsing alone against record floor, payload 64", "record_floor/64", "parse_only/64", 0.1)
    report.cost("parsing alone, payload 16384 against 0", "parse_few/0", "parse_few/16384", 1.5)
    report.cost("64 KiB frame in 64-byte packets against 16 of 4 KiB", "cut_frame/4096", "cut_frame/65536", 2.0, 1 / 16)
    report.speed("CRC of 64 KiB, speed against boost::crc_optimal", "crc_boost", "crc", 6.0)
    report.speed("event stream over the Cypress link, 1 KiB frames", "stream_floor/single/1024", "cypress_stream/1024",
                 1.0)
    report.speed("the same with frames of 27 bytes, against batch floor", "stream_floor/batch/27", "cypress_stream/27",
                 0.8)
    report.speed("event stream over the FTDI link, frames of 27 bytes", "stream_floor/batch/27", "ftdi_stream/27", 0.8)
    report.cost("round trip against hand-over floor, medians", "handover_floor", "round_trip", 1.1)
    report.cost("a session request against one of the class, medians", "round_trip", "session_request", 1.1)
    report.cost("an event's arrival against hand-over floor, medians", "handover_floor", "event_arrival/1", 2.0)
    report.cost("taking events in a batch against all records", "take_frames", "take_batch", 3.0)
    report.cost("taking events one by one against all records", "take_frames", "take_one_by_one", 6.0)

    late = statistics.median(r["event_arrival/4369"] - r["event_arrival/1"] for r in report.rounds) * 1e6
    print(f"the first event of a packet of 64 KiB, later than of a packet of one: median {late:.0f} us  <= 200"
          f"{'  MISSED' if late > 200 else ''}")
    for link in ("FTDI", "Cypress"):
        print(f"connect and disconnect, {link} link: median {report.time(f'reconnect_{link.lower()}') * 1e3:.1f} ms  < 25")
    print(f"64 instances at once: {1 / report.time('many_instances'):.0f} requests per second in total")
    show_instructions(binary)


main()
