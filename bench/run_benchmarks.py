#!/usr/bin/env python3
"""Runs the importer benchmarks, the hbgps command line and the reference
tools on the same input files in one go, and prints one BENCH line per
measurement and one AIM line per aim (see README.md here for the format).

Every measurement is one child process: its wall time is taken around the
process and its peak resident memory is the ru_maxrss that os.wait4 gives for
that child. Each run goes round all measurements once, so that a busy moment
of the machine falls on all of them alike; the figures are the medians over
the runs. Children work in folders of one temporary folder that is removed at
the end, and their output goes to files there.

Python 3 standard library only.
"""

import argparse
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Optional

BENCH = Path(__file__).resolve().parent
GENERATOR = BENCH / "generate_tracks.py"
AIM_POINTS = 1000000  # the time and memory aims are set for a file of this many points
AIM_GPX_SECONDS = 6.0
AIM_GPX_PEAK_MIB = 800.0

# Each input file and the text that opens each of its points.
INPUTS = {"gpx": ("tracks.gpx", b"<trkpt "), "tcx": ("tracks.tcx", b"<Trackpoint>"),
          "nmea": ("tracks.nmea", b"$GPRMC")}
# What --only chooses from, and the inputs each needs.
CHOICES = {"gpx_import": "gpx", "tcx_import": "tcx", "nmea_import": "nmea", "xmlwf": "gpx",
           "ogr2ogr": "gpx", "hbgps": "gpx", "gpsbabel": "gpx"}


class ChildFailed(Exception):
    """A child that ended with a non-zero status, or whose output shows it did
    not do the whole job."""

    def __init__(self, name, argv, reason, stderr):
        super().__init__("%s failed: %s\n  command: %s\n%s" % (name, reason, " ".join(map(str, argv)), stderr))


@dataclass(frozen=True)
class Sample:
    """One run of one measurement."""
    seconds: float  # wall time of the child process
    peak_mib: float  # the child's peak resident memory
    import_seconds: Optional[float] = None  # the benchmark program's own timing of the import alone


def count_occurrences(path, pattern, chunk_bytes=1 << 20):
    """How often pattern occurs in the file, read a chunk at a time so that
    the driver stays small (its own peak memory shows in every child's)."""
    count = 0
    carry = b""
    with open(path, "rb") as f:
        while True:
            chunk = f.read(chunk_bytes)
            if not chunk:
                return count
            window = carry + chunk
            count += window.count(pattern)
            # the tail that could still begin an occurrence, which is never a whole one
            carry = window[-(len(pattern) - 1):] if len(pattern) > 1 else b""


def run_child(name, argv, folder, env):
    """Runs argv in folder with its output in files there; returns the Sample
    and the text it wrote on standard output. Raises ChildFailed on a non-zero
    exit status."""
    stdout_path, stderr_path = folder / "stdout.txt", folder / "stderr.txt"
    with open(stdout_path, "wb") as out, open(stderr_path, "wb") as err:
        start = time.perf_counter()
        child = subprocess.Popen([str(a) for a in argv], cwd=folder, env=env,
                                 stdin=subprocess.DEVNULL, stdout=out, stderr=err)
        try:
            _, status, usage = os.wait4(child.pid, 0)
        except BaseException:
            child.kill()
            child.wait()
            raise
        seconds = time.perf_counter() - start
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        raise ChildFailed(name, argv, "exit status %d" % child.returncode, stderr_tail(stderr_path))
    # Linux gives ru_maxrss in KiB
    return Sample(seconds, usage.ru_maxrss / 1024.0), stdout_path.read_text(errors="replace")


def stderr_tail(path, limit=4000):
    text = path.read_text(errors="replace")
    return text if len(text) <= limit else "...\n" + text[-limit:]


def bench_values(stdout):
    """The "BENCH <name> <value> <unit>" lines of a benchmark program."""
    values = {}
    for line in stdout.splitlines():
        fields = line.split()
        if len(fields) >= 3 and fields[0] == "BENCH":
            values[fields[1]] = float(fields[2])
    return values


class Driver:
    def __init__(self, args, scratch):
        self.args = args
        self.scratch = scratch
        self.inputs = Path(args.inputs).resolve()
        build = Path(args.build).resolve()
        # the program each choice runs: from the build, or the reference tools from PATH
        self.programs = {"gpx_import": build / "bench" / "bench_xml_import",
                         "tcx_import": build / "bench" / "bench_xml_import",
                         "nmea_import": build / "bench" / "bench_nmea_import",
                         "xmlwf": "xmlwf", "ogr2ogr": "ogr2ogr", "hbgps": build / "apps" / "hbgps" / "hbgps",
                         "gpsbabel": "gpsbabel"}
        self.samples = {}
        self.measurements = {"gpx_import": self.gpx_import, "tcx_import": self.tcx_import,
                             "nmea_import": self.nmea_import, "xmlwf": self.xmlwf, "ogr2ogr": self.ogr2ogr,
                             "hbgps": self.hbgps, "gpsbabel": self.gpsbabel}

    def folder(self, name, run):
        folder = self.scratch / ("%s-%d" % (name, run))
        folder.mkdir()
        return folder

    def environment(self, folder, home=None):
        env = dict(os.environ, TMPDIR=str(folder))
        if home is not None:
            for variable, sub in (("XDG_DATA_HOME", "data"), ("XDG_CACHE_HOME", "cache"),
                                  ("XDG_CONFIG_HOME", "config")):
                env[variable] = str(home / sub)
        return env

    def record(self, name, sample):
        self.samples.setdefault(name, []).append(sample)
        print("  %-13s %8.3f s %8.1f MiB" % (name, sample.seconds, sample.peak_mib), file=sys.stderr)

    def measure(self, name, run, argv, home=None):
        """One child in a fresh folder, removed afterwards."""
        folder = self.folder(name, run)
        try:
            return run_child(name, argv, folder, self.environment(folder, home))
        finally:
            shutil.rmtree(folder)

    def benchmark_program(self, name, run, path, points_key, seconds_key):
        argv = [self.programs[name], path]
        sample, stdout = self.measure(name, run, argv)
        values = bench_values(stdout)
        saved = values.get(points_key)
        if saved != self.args.points:
            raise ChildFailed(name, argv, "saved %s of %d points" % (saved, self.args.points), stdout)
        self.record(name, Sample(sample.seconds, sample.peak_mib, values.get(seconds_key)))

    def gpx_import(self, run):
        self.benchmark_program("gpx_import", run, self.input("gpx"),
                               "saved_track_points", "import_seconds")

    def tcx_import(self, run):
        self.benchmark_program("tcx_import", run, self.input("tcx"),
                               "saved_track_points", "import_seconds")

    def nmea_import(self, run):
        self.benchmark_program("nmea_import", run, self.input("nmea"),
                               "nmea_import_points", "nmea_import_seconds")

    def xmlwf(self, run):
        argv = [self.programs["xmlwf"], self.input("gpx")]
        sample, stdout = self.measure("xmlwf", run, argv)
        if stdout:  # xmlwf names what is not well-formed on standard output
            raise ChildFailed("xmlwf", argv, "the file is not well-formed", stdout)
        self.record("xmlwf", sample)

    def ogr2ogr(self, run):
        argv = [self.programs["ogr2ogr"], "-f", "GPKG", "out.gpkg", self.input("gpx")]
        self.record("ogr2ogr", self.measure("ogr2ogr", run, argv)[0])

    def gpsbabel(self, run):
        argv = [self.programs["gpsbabel"], "-i", "gpx", "-f", self.input("gpx"), "-o", "gpx", "-F", "out.gpx"]
        self.record("gpsbabel", self.measure("gpsbabel", run, argv)[0])

    def hbgps(self, run):
        """An import into a fresh home, then the export of everything in it."""
        home = self.folder("hbgps", run)
        try:
            argv = [self.programs["hbgps"], "import", self.input("gpx")]
            imported, stdout = self.measure("hbgps_import", run, argv, home)
            if "1 imported," not in stdout:
                raise ChildFailed("hbgps_import", argv, "the file was not imported", stdout)
            out = home / "out.gpx"
            argv = [self.programs["hbgps"], "export", "-o", out, "--all"]
            exported, stdout = self.measure("hbgps_export", run, argv, home)
            written = count_occurrences(out, INPUTS["gpx"][1]) if out.is_file() else 0
            if written != self.args.points:
                raise ChildFailed("hbgps_export", argv, "wrote %d of %d points" % (written, self.args.points), stdout)
        finally:
            shutil.rmtree(home)
        self.record("hbgps_import", imported)
        self.record("hbgps_export", exported)
        self.samples.setdefault("hbgps_import_export", []).append(
            Sample(imported.seconds + exported.seconds, max(imported.peak_mib, exported.peak_mib)))

    def input(self, kind):
        return self.inputs / INPUTS[kind][0]

    def prepare_inputs(self):
        """Writes the input files that are missing or hold another number of points."""
        kinds = sorted({CHOICES[name] for name in self.args.only})
        stale = [k for k in kinds
                 if not self.input(k).is_file() or count_occurrences(self.input(k), INPUTS[k][1]) != self.args.points]
        if not stale:
            return
        print("writing %s with %d points into %s" % (", ".join(stale), self.args.points, self.inputs), file=sys.stderr)
        result = subprocess.run([sys.executable, str(GENERATOR), "--out", str(self.inputs), "--points",
                                 str(self.args.points), "--only", ",".join(stale)], stdout=sys.stderr)
        if result.returncode != 0:
            sys.exit("run_benchmarks: generate_tracks.py failed (exit status %d)" % result.returncode)

    def missing_programs(self):
        return sorted({str(self.programs[n]) for n in self.args.only if shutil.which(self.programs[n]) is None})

    def run(self):
        for run in range(1, self.args.runs + 1):
            print("run %d of %d" % (run, self.args.runs), file=sys.stderr)
            for name in self.args.only:
                self.measurements[name](run)
        return self.samples


# The lines, in their order, with the ratios each carries: key, the measurement
# it compares with, and whether it compares rates (points per second) rather
# than seconds.
LINES = (("gpx_import", True, (("ratio_to_xmlwf", "xmlwf", False), ("ratio_to_ogr2ogr", "ogr2ogr", False))),
         ("tcx_import", True, (("ratio_to_xmlwf", "xmlwf", False),)),
         ("nmea_import", True, (("ratio_to_xmlwf", "xmlwf", False), ("rate_ratio_to_gpx_import", "gpx_import", True))),
         ("xmlwf", False, ()),
         ("ogr2ogr", False, ()),
         ("hbgps_import", True, ()),
         ("hbgps_export", False, ()),
         ("hbgps_import_export", False, (("ratio_to_gpsbabel", "gpsbabel", False),)),
         ("gpsbabel", False, ()))


def operation_seconds(m):
    """The time of the import operation itself, from its start to its saved
    files, where the program reports it; else the whole process."""
    return m.import_seconds if m.import_seconds is not None else m.seconds


def medians(samples):
    return {name: Sample(statistics.median(s.seconds for s in runs),
                         statistics.median(s.peak_mib for s in runs),
                         statistics.median(s.import_seconds for s in runs) if runs[0].import_seconds is not None else None)
            for name, runs in samples.items()}


def bench_lines(samples, points):
    """One line per measurement that ran, from the samples of all runs."""
    median = medians(samples)
    lines = []
    for name, imports, ratios in LINES:
        if name not in median:
            continue
        m = median[name]
        fields = ["seconds=%.3f" % m.seconds]
        if imports:
            fields += ["points=%d" % points, "points_per_second=%d" % round(points / operation_seconds(m))]
        if m.import_seconds is not None:
            fields.append("import_seconds=%.3f" % m.import_seconds)
        fields += ["peak_mib=%.1f" % m.peak_mib, "runs=%d" % len(samples[name])]
        for key, other, by_rate in ratios:
            if other in median:
                mine, theirs = operation_seconds(m), operation_seconds(median[other])
                ratio = theirs / mine if by_rate else mine / theirs
                fields.append("%s=%.2f" % (key, ratio))
        lines.append("BENCH %s %s" % (name, " ".join(fields)))
    return lines


# The aims: name, the measurements they need, the figure judged, how it must
# relate to the limit, the limit, and whether the aim is set only for the
# file of AIM_POINTS points.
AIMS = (("gpx_import_seconds", ("gpx_import",), lambda m: operation_seconds(m["gpx_import"]),
         "below", AIM_GPX_SECONDS, True),
        ("gpx_import_peak_mib", ("gpx_import",), lambda m: m["gpx_import"].peak_mib,
         "below", AIM_GPX_PEAK_MIB, True),
        ("gpx_import_faster_than_ogr2ogr", ("gpx_import", "ogr2ogr"),
         lambda m: operation_seconds(m["gpx_import"]) / m["ogr2ogr"].seconds, "below", 1, False),
        # the same points in both files, so the ratio of the times is that of the rates
        ("nmea_rate_at_least_gpx_rate", ("gpx_import", "nmea_import"),
         lambda m: operation_seconds(m["gpx_import"]) / operation_seconds(m["nmea_import"]), "at_least", 1, False),
        ("hbgps_faster_than_gpsbabel", ("hbgps_import_export", "gpsbabel"),
         lambda m: m["hbgps_import_export"].seconds / m["gpsbabel"].seconds, "below", 1, False))


def aim_lines(samples, points):
    """One line per aim: met, not_met, or not_judged with the reason."""
    median = medians(samples)
    lines = []
    for name, needs, figure, relation, limit, full_file_only in AIMS:
        value = reason = None
        if not all(n in median for n in needs):
            result, reason = "not_judged", "not_measured"
        else:
            value = figure(median)
            if full_file_only and points != AIM_POINTS:
                result, reason = "not_judged", "points_not_%d" % AIM_POINTS
            else:
                result = "met" if (value < limit if relation == "below" else value >= limit) else "not_met"
        fields = ["result=%s" % result]
        if value is not None:
            fields.append("value=%.3f" % value)
        fields.append("%s=%g" % (relation, limit))
        if reason:
            fields.append("reason=%s" % reason)
        lines.append("AIM %s %s" % (name, " ".join(fields)))
    return lines


def choice_list(text):
    names = [n for n in text.split(",") if n]
    unknown = [n for n in names if n not in CHOICES]
    if not names or unknown:
        raise argparse.ArgumentTypeError("choose from %s" % ",".join(CHOICES))
    return [n for n in CHOICES if n in names]  # in the usual order, once each


def parse_arguments(argv):
    parser = argparse.ArgumentParser(
        description="Times the importers, hbgps and the reference tools on the same files; prints BENCH and AIM lines.")
    parser.add_argument("--build", metavar="DIR", default=str(BENCH.parent / "build"),
                        help="build folder holding bench/bench_* and apps/hbgps/hbgps (default: build)")
    parser.add_argument("--inputs", metavar="DIR", help="folder of the input files (default: BUILD/bench-inputs)")
    parser.add_argument("--points", metavar="N", type=int, default=AIM_POINTS,
                        help="track points in the input files (default %d)" % AIM_POINTS)
    parser.add_argument("--runs", metavar="N", type=int, default=3, help="runs of each measurement (default 3)")
    parser.add_argument("--only", metavar="LIST", type=choice_list, default=list(CHOICES),
                        help="measurements to run (default all): %s" % ",".join(CHOICES))
    args = parser.parse_args(argv)
    for option, value in (("--points", args.points), ("--runs", args.runs)):
        if value < 1:
            parser.error("%s must be 1 or more" % option)
    if args.inputs is None:
        args.inputs = str(Path(args.build) / "bench-inputs")
    return args


def main(argv):
    args = parse_arguments(argv)
    with tempfile.TemporaryDirectory(prefix="hb-bench-") as scratch:
        driver = Driver(args, Path(scratch))
        missing = driver.missing_programs()
        if missing:
            print("run_benchmarks: missing %s (scripts/bootstrap installs the tools; build the project for the rest)"
                  % ", ".join(missing), file=sys.stderr)
            return 1
        driver.prepare_inputs()
        try:
            samples = driver.run()
        except ChildFailed as failure:
            print("run_benchmarks: %s" % failure, file=sys.stderr)
            return 1
    for line in bench_lines(samples, args.points) + aim_lines(samples, args.points):
        print(line)
    # Linux carries the high-water mark of the process that starts a child into
    # the child's ru_maxrss, so no peak can read lower than this one.
    print("peak_mib of every child is at least the driver's own peak, %.1f MiB"
          % (resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024.0), file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
