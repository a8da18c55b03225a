#!/usr/bin/env python3
"""Checks run_benchmarks.py: the BENCH and AIM lines worked out from given
samples, the point count of the inputs, the child's own peak memory, failing
children, and one real run of everything on 2,000 points.

HB_BUILD_DIR names the build folder (CTest sets it). Exits with 77, which
CTest counts as skipped, when a reference tool is missing and everything
else passed."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

BENCH = Path(__file__).resolve().parent
sys.path.insert(0, str(BENCH))
import run_benchmarks  # noqa: E402  (found through the line above)
from run_benchmarks import Sample  # noqa: E402

DRIVER = BENCH / "run_benchmarks.py"
BUILD = Path(os.environ.get("HB_BUILD_DIR", BENCH.parent / "build"))
MISSING_TOOLS = [t for t in ("xmlwf", "ogr2ogr", "gpsbabel") if shutil.which(t) is None]
SKIP_RETURN_CODE = 77
NUMBER = re.compile(r"^[0-9]+(\.[0-9]+)?$")


def driver(*arguments, tmpdir):
    env = dict(os.environ, TMPDIR=str(tmpdir))
    return subprocess.run([sys.executable, str(DRIVER), *map(str, arguments)], capture_output=True, text=True, env=env)


def fields_of(line):
    """("BENCH", name, [(key, value), ...]) of one line."""
    kind, name, *pairs = line.split(" ")
    return kind, name, [tuple(p.split("=", 1)) for p in pairs]


class Summary(unittest.TestCase):
    def test_lines_from_samples(self):
        def runs(*seconds, peak=100.0, inner=None):
            return [Sample(s, peak + i, None if inner is None else inner + i) for i, s in enumerate(seconds)]

        everything = {
            "gpx_import": runs(5.0, 4.0, 9.0, peak=700.0, inner=3.5),  # medians 5 s, 701 MiB, 4.5 s
            "tcx_import": runs(10.0, 12.0, 11.0, inner=9.0),
            "nmea_import": runs(4.0, 4.0, 4.0, inner=3.0),
            "xmlwf": runs(0.5, 0.4, 0.6),
            "ogr2ogr": runs(6.0, 6.5, 5.0),
            "hbgps_import": runs(7.0, 7.0, 7.0),
            "hbgps_export": runs(2.0, 3.0, 2.0),
            "hbgps_import_export": runs(9.0, 10.0, 9.0, peak=300.0),
            "gpsbabel": runs(8.0, 8.0, 8.0),
        }
        rows = (
            ("every measurement on the full file", everything, 1000000, [
                "BENCH gpx_import seconds=5.000 points=1000000 points_per_second=222222 import_seconds=4.500 "
                "peak_mib=701.0 runs=3 ratio_to_xmlwf=9.00 ratio_to_ogr2ogr=0.75",
                "BENCH tcx_import seconds=11.000 points=1000000 points_per_second=100000 import_seconds=10.000 "
                "peak_mib=101.0 runs=3 ratio_to_xmlwf=20.00",
                "BENCH nmea_import seconds=4.000 points=1000000 points_per_second=250000 import_seconds=4.000 "
                "peak_mib=101.0 runs=3 ratio_to_xmlwf=8.00 rate_ratio_to_gpx_import=1.12",
                "BENCH xmlwf seconds=0.500 peak_mib=101.0 runs=3",
                "BENCH ogr2ogr seconds=6.000 peak_mib=101.0 runs=3",
                "BENCH hbgps_import seconds=7.000 points=1000000 points_per_second=142857 peak_mib=101.0 runs=3",
                "BENCH hbgps_export seconds=2.000 peak_mib=101.0 runs=3",
                "BENCH hbgps_import_export seconds=9.000 peak_mib=301.0 runs=3 ratio_to_gpsbabel=1.12",
                "BENCH gpsbabel seconds=8.000 peak_mib=101.0 runs=3",
                "AIM gpx_import_seconds result=met value=4.500 below=6",
                "AIM gpx_import_peak_mib result=met value=701.000 below=800",
                "AIM gpx_import_faster_than_ogr2ogr result=met value=0.750 below=1",
                "AIM nmea_rate_at_least_gpx_rate result=met value=1.125 at_least=1",
                "AIM hbgps_faster_than_gpsbabel result=not_met value=1.125 below=1",
            ]),
            # two runs: the median is their mean; the ratios whose other side did not run are left out
            ("two importers on a small file", {"gpx_import": runs(2.0, 3.0, peak=900.0, inner=1.0),
                                               "nmea_import": runs(4.0, 6.0, inner=3.0)}, 2000, [
                "BENCH gpx_import seconds=2.500 points=2000 points_per_second=1333 import_seconds=1.500 "
                "peak_mib=900.5 runs=2",
                "BENCH nmea_import seconds=5.000 points=2000 points_per_second=571 import_seconds=3.500 "
                "peak_mib=100.5 runs=2 rate_ratio_to_gpx_import=0.43",
                "AIM gpx_import_seconds result=not_judged value=1.500 below=6 reason=points_not_1000000",
                "AIM gpx_import_peak_mib result=not_judged value=900.500 below=800 reason=points_not_1000000",
                "AIM gpx_import_faster_than_ogr2ogr result=not_judged below=1 reason=not_measured",
                "AIM nmea_rate_at_least_gpx_rate result=not_met value=0.429 at_least=1",
                "AIM hbgps_faster_than_gpsbabel result=not_judged below=1 reason=not_measured",
            ]),
            ("slow and large on the full file", {"gpx_import": runs(6.0, 6.0, 6.0, peak=800.0)}, 1000000, [
                "BENCH gpx_import seconds=6.000 points=1000000 points_per_second=166667 peak_mib=801.0 runs=3",
                "AIM gpx_import_seconds result=not_met value=6.000 below=6",
                "AIM gpx_import_peak_mib result=not_met value=801.000 below=800",
                "AIM gpx_import_faster_than_ogr2ogr result=not_judged below=1 reason=not_measured",
                "AIM nmea_rate_at_least_gpx_rate result=not_judged at_least=1 reason=not_measured",
                "AIM hbgps_faster_than_gpsbabel result=not_judged below=1 reason=not_measured",
            ]),
        )
        for label, samples, points, expected in rows:
            with self.subTest(label):
                self.assertEqual(run_benchmarks.bench_lines(samples, points)
                                 + run_benchmarks.aim_lines(samples, points), expected)


class CountOccurrences(unittest.TestCase):
    def test_counts_across_chunk_boundaries(self):
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "points"
            path.write_bytes(b"<trkpt <trkpt x<trkpt\n<trkp <trkpt ")
            # chunk sizes that cut an occurrence at every place, and one that holds the file
            for chunk_bytes in (1, 2, 3, 5, 7, 1000):
                with self.subTest(chunk_bytes=chunk_bytes):
                    self.assertEqual(run_benchmarks.count_occurrences(path, b"<trkpt ", chunk_bytes), 3)


class RunChild(unittest.TestCase):
    def test_peak_memory_is_the_childs(self):
        with tempfile.TemporaryDirectory() as folder:
            # the child touches 300 MiB; the driver holds a small fraction of that
            sample, stdout = run_benchmarks.run_child(
                "allocate", [sys.executable, "-c", "b = bytearray(300 << 20); print(len(b))"], Path(folder), os.environ)
        self.assertEqual(stdout, "314572800\n")
        self.assertGreaterEqual(sample.peak_mib, 300.0)
        self.assertLess(sample.peak_mib, 400.0)

    def test_failing_child_raises_with_its_stderr(self):
        with tempfile.TemporaryDirectory() as folder:
            with self.assertRaises(run_benchmarks.ChildFailed) as caught:
                run_benchmarks.run_child("fails", [sys.executable, "-c", "import sys; sys.exit('no stores here')"],
                                         Path(folder), os.environ)
        self.assertIn("fails failed: exit status 1", str(caught.exception))
        self.assertIn("no stores here", str(caught.exception))


class Driver(unittest.TestCase):
    """The driver as a person runs it, on small files."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.inputs = Path(cls.folder.name) / "inputs"
        cls.tmpdir = Path(cls.folder.name) / "tmp"
        cls.tmpdir.mkdir()

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def fake_build(self, script):
        """A build folder whose bench_xml_import is the given shell script."""
        build = Path(self.folder.name) / "fake-build"
        (build / "bench").mkdir(parents=True, exist_ok=True)
        program = build / "bench" / "bench_xml_import"
        program.write_text("#!/bin/sh\n" + script)
        program.chmod(0o755)
        return build

    def test_every_measurement_once_on_2000_points(self):
        if MISSING_TOOLS:
            self.skipTest("missing " + ", ".join(MISSING_TOOLS))
        result = driver("--build", BUILD, "--inputs", self.inputs, "--points", 2000, "--runs", 1, tmpdir=self.tmpdir)
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = [fields_of(line) for line in result.stdout.splitlines()]
        importing = ["seconds", "points", "points_per_second"]
        expected = [
            ("BENCH", "gpx_import", importing + ["import_seconds", "peak_mib", "runs", "ratio_to_xmlwf", "ratio_to_ogr2ogr"]),
            ("BENCH", "tcx_import", importing + ["import_seconds", "peak_mib", "runs", "ratio_to_xmlwf"]),
            ("BENCH", "nmea_import", importing + ["import_seconds", "peak_mib", "runs", "ratio_to_xmlwf",
                                                  "rate_ratio_to_gpx_import"]),
            ("BENCH", "xmlwf", ["seconds", "peak_mib", "runs"]),
            ("BENCH", "ogr2ogr", ["seconds", "peak_mib", "runs"]),
            ("BENCH", "hbgps_import", importing + ["peak_mib", "runs"]),
            ("BENCH", "hbgps_export", ["seconds", "peak_mib", "runs"]),
            ("BENCH", "hbgps_import_export", ["seconds", "peak_mib", "runs", "ratio_to_gpsbabel"]),
            ("BENCH", "gpsbabel", ["seconds", "peak_mib", "runs"]),
            ("AIM", "gpx_import_seconds", ["result", "value", "below", "reason"]),
            ("AIM", "gpx_import_peak_mib", ["result", "value", "below", "reason"]),
            ("AIM", "gpx_import_faster_than_ogr2ogr", ["result", "value", "below"]),
            ("AIM", "nmea_rate_at_least_gpx_rate", ["result", "value", "at_least"]),
            ("AIM", "hbgps_faster_than_gpsbabel", ["result", "value", "below"]),
        ]
        self.assertEqual([(kind, name, [key for key, _ in pairs]) for kind, name, pairs in lines], expected)
        for kind, name, pairs in lines:
            values = dict(pairs)
            with self.subTest(name=name):
                if kind == "BENCH":
                    self.assertTrue(all(NUMBER.match(v) for v in values.values()), values)
                    self.assertGreater(float(values["seconds"]), 0.0)
                    self.assertGreater(float(values["peak_mib"]), 1.0)
                    self.assertEqual(values["runs"], "1")
                    self.assertEqual(values.get("points", "2000"), "2000")
                else:
                    self.assertRegex(values["value"], NUMBER)
                    self.assertIn(values["result"], ("not_judged",) if "reason" in values else ("met", "not_met"))
                    self.assertEqual(values.get("reason", "points_not_1000000"), "points_not_1000000")
        self.assertEqual(os.listdir(self.tmpdir), [])  # the temporary homes are gone

    def test_inputs_of_another_size_are_written_again(self):
        driver("--inputs", self.inputs, "--points", 2000, "--only", "xmlwf", tmpdir=self.tmpdir)
        result = driver("--inputs", self.inputs, "--points", 2100, "--only", "xmlwf", tmpdir=self.tmpdir)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(run_benchmarks.count_occurrences(self.inputs / "tracks.gpx", b"<trkpt "), 2100)
        self.assertIn("writing gpx with 2100 points", result.stderr)
        again = driver("--inputs", self.inputs, "--points", 2100, "--only", "xmlwf", tmpdir=self.tmpdir)
        self.assertNotIn("writing", again.stderr)

    def test_a_failing_child_stops_the_run_and_shows_why(self):
        rows = (("exit status", "echo 'cannot open the stores' >&2; exit 4",
                 ["gpx_import failed: exit status 4", "cannot open the stores"]),
                ("points lost", "echo 'BENCH saved_track_points 1999.000 points'",
                 ["gpx_import failed: saved 1999.0 of 2000 points"]))
        for label, script, messages in rows:
            with self.subTest(label):
                result = driver("--build", self.fake_build(script), "--inputs", self.inputs, "--points", 2000,
                                "--only", "gpx_import", tmpdir=self.tmpdir)
                self.assertEqual(result.returncode, 1)
                self.assertEqual(result.stdout, "")
                for message in messages:
                    self.assertIn(message, result.stderr)
                self.assertEqual(os.listdir(self.tmpdir), [])


if __name__ == "__main__":
    outcome = unittest.main(exit=False).result
    if not outcome.wasSuccessful():
        sys.exit(1)
    sys.exit(SKIP_RETURN_CODE if outcome.skipped else 0)
