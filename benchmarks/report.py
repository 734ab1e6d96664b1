#!/usr/bin/env python3
"""Runs the benchmarks and prints their ratios to the floors of the same run, beside what is aimed for.

Usage: report.py BENCHMARK_BINARY [ROUNDS]. Each figure is the best of several rounds that go through all benchmarks in
turn: what else the machine does only adds to a time. A missed aim is marked and no more: on a busy machine ratios
stray."""

import json
import subprocess
import sys

USUAL_ROUNDS = 15


def run_once(binary):
    command = [binary, "--benchmark_format=json", "--benchmark_min_time=0.02"]
    output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    seconds = {}
    for row in json.loads(output)["benchmarks"]:
        if row.get("error_occurred"):
            sys.exit(f"{row['name']}: {row['error_message']}")
        name = row["name"].replace("/manual_time", "").replace("/real_time", "")
        if "items_per_second" in row:
            seconds[name] = 1 / row["items_per_second"]
        elif "median_seconds" in row:
            seconds[name] = row["median_seconds"]
        else:
            seconds[name] = row["real_time"] * {"ns": 1e-9, "us": 1e-6, "ms": 1e-3}[row["time_unit"]]
    return seconds


def main():
    count = int(sys.argv[2]) if len(sys.argv) > 2 else USUAL_ROUNDS
    rounds = [run_once(sys.argv[1]) for _ in range(count)]

    def time(name):
        return min(r[name] for r in rounds)

    def ratio(a, b, factor=1.0):
        return factor * time(a) / time(b)

    rows = []
    for payload in (0, 8, 64, 1024, 16384):
        rows.append((f"engine against record floor, payload {payload}", f"record_floor/{payload}", f"engine/{payload}",
                     ratio(f"record_floor/{payload}", f"engine/{payload}"), ">=", 0.9))
    rows += [
        ("parsing alone against record floor, payload 64", "record_floor/64", "parse_only/64",
         ratio("parse_only/64", "record_floor/64"), "<=", 0.1),
        ("parsing alone, payload 16384 against 0", "parse_few/0", "parse_few/16384",
         ratio("parse_few/16384", "parse_few/0"), "<=", 1.5),
        ("64 KiB frame in 64-byte packets against 16 of 4 KiB", "cut_frame/4096", "cut_frame/65536",
         ratio("cut_frame/65536", "cut_frame/4096", 1 / 16), "<=", 2.0),
        ("CRC of 64 KiB, speed against boost::crc_optimal", "crc_boost", "crc", ratio("crc_boost", "crc"), ">=", 6.0),
        ("round trip against hand-over floor, medians", "handover_floor", "round_trip",
         ratio("round_trip", "handover_floor"), "<=", 1.2),
        ("a session request against one of the class, medians", "round_trip", "session_request",
         ratio("session_request", "round_trip"), "<=", 1.1),
        ("an event's arrival against hand-over floor, medians", "handover_floor", "event_arrival",
         ratio("event_arrival", "handover_floor"), "<=", 2.0),
        ("taking events in a batch against all records", "take_frames", "take_batch",
         ratio("take_batch", "take_frames"), "<=", 3.0),
        ("taking events one by one against all records", "take_frames", "take_one_by_one",
         ratio("take_one_by_one", "take_frames"), "<=", 6.0),
        ("event stream over the Cypress link against floor, 1 KiB frames", "stream_floor", "cypress_stream",
         ratio("stream_floor", "cypress_stream"), ">=", 0.7),
    ]

    print(f"{'':52} {'floor':>11} {'measured':>11} {'ratio':>7}  aim")
    for label, floor, measured, value, relation, aim in rows:
        good = value >= aim if relation == ">=" else value <= aim
        print(f"{label:52} {time(floor) * 1e9:8.0f} ns {time(measured) * 1e9:8.0f} ns {value:7.2f}  {relation} {aim}"
              f"{'' if good else '  MISSED'}")
    for link in ("FTDI", "Cypress"):
        print(f"connect and disconnect, {link} link: median {time(f'reconnect_{link.lower()}') * 1e3:.1f} ms  < 25")
    print(f"64 instances at once: {1 / time('many_instances'):.0f} requests per second in total")


main()
