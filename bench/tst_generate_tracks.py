#!/usr/bin/env python3
"""Checks a small set written by generate_tracks.py: the GPX against the GPX 1.1
schema, the TCX for well-formedness, every NMEA sentence's checksum and field
count, and that the three files carry the same fixes.

HB_XMLLINT and HB_GPX_SCHEMA name xmllint and the schema (CTest sets both)."""

import functools
import math
import operator
import os
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ET
from datetime import datetime, timezone
from pathlib import Path

BENCH = Path(__file__).resolve().parent
sys.path.insert(0, str(BENCH))
import generate_tracks  # noqa: E402  (found through the line above)

GENERATOR = BENCH / "generate_tracks.py"
XMLLINT = os.environ.get("HB_XMLLINT", "xmllint")
GPX_SCHEMA = os.environ.get("HB_GPX_SCHEMA", str(BENCH.parent.parent / "shared" / "schemas" / "gpx-1.1.xsd"))
GPX = "{http://www.topografix.com/GPX/1/1}"
TCX = "{http://www.garmin.com/xmlschemas/TrainingCenterDatabase/v2}"
SMALL = ["--points", "200", "--waypoints", "5", "--segments", "5"]


def generate(folder, *arguments):
    return subprocess.run([sys.executable, str(GENERATOR), "--out", str(folder), *arguments],
                          capture_output=True, text=True)


def nmea_degrees(field, hemisphere, degree_digits):
    value = int(field[:degree_digits]) + float(field[degree_digits:]) / 60.0
    return -value if hemisphere in ("S", "W") else value


def nmea_time(time_field, date_field):
    return "20%s-%s-%sT%s:%s:%s" % (date_field[4:6], date_field[2:4], date_field[0:2],
                                    time_field[0:2], time_field[2:4], time_field[4:6])


def metres_between(a, b):
    dy = (b[0] - a[0]) * 111320.0
    dx = (b[1] - a[1]) * 111320.0 * math.cos(math.radians(a[0]))
    return math.hypot(dx, dy)


class SmallSet(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        result = generate(cls.folder.name, *SMALL)
        if result.returncode != 0:
            raise RuntimeError(result.stderr)
        out = Path(cls.folder.name)
        cls.gpx = ET.parse(out / "tracks.gpx").getroot()
        cls.segments = [[(float(p.get("lat")), float(p.get("lon")), p.get("lat"), p.get("lon"),
                          p.findtext(GPX + "ele"), p.findtext(GPX + "time"))
                         for p in seg.iter(GPX + "trkpt")]
                        for seg in cls.gpx.iter(GPX + "trkseg")]
        cls.points = [p for seg in cls.segments for p in seg]
        cls.nmea_bytes = (out / "tracks.nmea").read_bytes()

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def test_gpx_validates_against_the_schema(self):
        result = subprocess.run([XMLLINT, "--noout", "--schema", GPX_SCHEMA,
                                 str(Path(self.folder.name) / "tracks.gpx")], capture_output=True, text=True)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_tcx_is_well_formed(self):
        result = subprocess.run([XMLLINT, "--noout", str(Path(self.folder.name) / "tracks.tcx")],
                                capture_output=True, text=True)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_gpx_holds_every_point_and_waypoint(self):
        self.assertEqual([len(seg) for seg in self.segments], [40] * 5)
        waypoints = self.gpx.findall(GPX + "wpt")
        self.assertEqual([w.findtext(GPX + "name") for w in waypoints],
                         ["WP0001", "WP0002", "WP0003", "WP0004", "WP0005"])
        self.assertEqual([w.findtext(GPX + "sym") for w in waypoints],
                         ["Flag", "Campground", "Summit", "Restaurant", "Parking"])
        # Waypoint k sits on point k * 200 / 5: the first point of each segment here.
        for waypoint, segment in zip(waypoints, self.segments):
            first = segment[0]
            self.assertEqual((waypoint.get("lat"), waypoint.get("lon"), waypoint.findtext(GPX + "ele"),
                              waypoint.findtext(GPX + "time")), first[2:6])

    def test_segments_start_ten_days_apart_with_one_fix_per_second(self):
        starts = [seg[0][5] for seg in self.segments]
        self.assertEqual(starts, ["2023-03-01T06:00:00Z", "2023-03-11T06:00:00Z", "2023-03-21T06:00:00Z",
                                  "2023-03-31T06:00:00Z", "2023-04-10T06:00:00Z"])
        reference = datetime(2001, 1, 1, tzinfo=timezone.utc)
        periods = {(datetime.fromisoformat(p[5].replace("Z", "+00:00")) - reference).days // 10
                   for p in self.points}
        self.assertEqual(len(periods), 5)
        for seg in self.segments:
            seconds = [datetime.fromisoformat(p[5].replace("Z", "+00:00")).timestamp() for p in seg]
            self.assertEqual([b - a for a, b in zip(seconds, seconds[1:])], [1.0] * (len(seg) - 1))

    def test_path_moves_in_small_steps(self):
        for seg in self.segments:
            for a, b in zip(seg, seg[1:]):
                self.assertTrue(1.0 < metres_between(a, b) < 13.0, (a, b))

    def test_coordinates_have_six_to_nine_decimals(self):
        decimals = {len(p[2].split(".")[1]) for p in self.points}
        self.assertEqual(decimals, {6, 7, 8, 9})
        for p in self.points:
            self.assertEqual(len(p[2].split(".")[1]), len(p[3].split(".")[1]))

    def test_tcx_carries_the_gpx_points_one_lap_per_segment(self):
        tcx = ET.parse(Path(self.folder.name) / "tracks.tcx").getroot()
        laps = tcx.findall(f"{TCX}Activities/{TCX}Activity/{TCX}Lap")
        self.assertEqual(len(laps), 5)
        for lap, segment in zip(laps, self.segments):
            self.assertEqual(lap.findtext(TCX + "TotalTimeSeconds"), "39")
            self.assertEqual(lap.get("StartTime")[:19], segment[0][5][:19])
            points = lap.findall(f"{TCX}Track/{TCX}Trackpoint")
            self.assertEqual(len(lap.findall(TCX + "Track")), 1)
            got = [(p.findtext(f"{TCX}Position/{TCX}LatitudeDegrees"),
                    p.findtext(f"{TCX}Position/{TCX}LongitudeDegrees"),
                    p.findtext(TCX + "AltitudeMeters"), p.findtext(TCX + "Time")[:19]) for p in points]
            self.assertEqual(got, [(p[2], p[3], p[4], p[5][:19]) for p in segment])

    def test_nmea_sentences_have_checksums_and_the_fields_an_importer_needs(self):
        lines = self.nmea_bytes.decode("ascii").split("\r\n")
        self.assertEqual(lines[-1], "")  # every sentence ends in CR LF
        lines = lines[:-1]
        self.assertEqual(len(lines), 400)
        for number, line in enumerate(lines):
            body, star, checksum = line[1:].partition("*")
            self.assertEqual((line[0], star), ("$", "*"), line)
            self.assertEqual(checksum, "%02X" % functools.reduce(operator.xor, body.encode("ascii"), 0), line)
            fields = line.replace("*", ",").split(",")
            expected = ("$GPRMC", 14) if number % 2 == 0 else ("$GPGGA", 16)
            self.assertEqual((fields[0], len(fields)), expected, line)

    def test_nmea_carries_the_gpx_fixes(self):
        lines = self.nmea_bytes.decode("ascii").split("\r\n")[:-1]
        for rmc, gga, point in zip(lines[0::2], lines[1::2], self.points):
            r = rmc.replace("*", ",").split(",")
            g = gga.replace("*", ",").split(",")
            self.assertEqual(nmea_time(r[1], r[9]), point[5][:19])
            self.assertEqual((g[1], g[2:6]), (r[1], r[3:7]))
            # ddmm.mmmm keeps a position to 1/600000 degree; the GPX text to 6 decimals at least.
            self.assertAlmostEqual(nmea_degrees(r[3], r[4], 2), point[0], delta=1.4e-6)
            self.assertAlmostEqual(nmea_degrees(r[5], r[6], 3), point[1], delta=1.4e-6)
            self.assertAlmostEqual(float(g[9]), float(point[4]), delta=0.051)


class SegmentPlan(unittest.TestCase):
    def test_segments_share_out_the_points_and_never_overlap(self):
        day = 86400
        # (points, segments, expected sizes, expected days between segment starts)
        rows = ((200, 5, [40] * 5, 10),
                (203, 5, [41, 41, 41, 40, 40], 10),
                (3 * day + 1, 3, [day + 1, day, day], 20),  # a day and a second needs two days
                (100 * day, 2, [50 * day] * 2, 50),  # long segments push the starts apart
                (7, 1, [7], 0))
        for points, segments, sizes, gap_days in rows:
            with self.subTest(points=points, segments=segments):
                plan = generate_tracks.Plan(points, segments)
                self.assertEqual(plan.sizes, sizes)
                first = generate_tracks.FIRST_START
                self.assertEqual(plan.starts, [first + i * gap_days * day for i in range(segments)])


class PathEdges(unittest.TestCase):
    def test_path_turns_back_before_the_poles_and_the_date_line(self):
        fix = generate_tracks.Fix
        # Start heading outwards (radians clockwise from north) next to an edge: a pole at 80 degrees
        # of latitude or the date line at 179 degrees of longitude.
        for lat, lon, heading, field, edge in ((79.99, 0.0, 0.0, fix.LAT, 80.0),
                                               (-79.99, 10.0, math.pi, fix.LAT, 80.0),
                                               (10.0, 178.99, math.pi / 2, fix.LON, 179.0),
                                               (10.0, -178.99, -math.pi / 2, fix.LON, 179.0)):
            with self.subTest(lat=lat, lon=lon):
                walk = generate_tracks.Walk(1)
                walk.lat, walk.lon, walk.heading = lat, lon, heading
                distances = [abs(f[field]) for f in walk.fixes(0, 20000)]
                self.assertLess(max(distances), edge + 0.001)
                self.assertLess(distances[-1], edge - 0.1)  # it left the edge rather than stick to it


class Options(unittest.TestCase):
    def test_same_seed_writes_same_bytes(self):
        with tempfile.TemporaryDirectory() as a, tempfile.TemporaryDirectory() as b, \
                tempfile.TemporaryDirectory() as c:
            for folder, seed in ((a, "7"), (b, "7"), (c, "8")):
                self.assertEqual(generate(folder, *SMALL, "--seed", seed).returncode, 0)
            for name in ("tracks.gpx", "tracks.tcx", "tracks.nmea"):
                self.assertEqual((Path(a) / name).read_bytes(), (Path(b) / name).read_bytes(), name)
                self.assertNotEqual((Path(a) / name).read_bytes(), (Path(c) / name).read_bytes(), name)

    def test_only_writes_the_chosen_formats(self):
        for only, expected in (("nmea", ["tracks.nmea"]), ("tcx,gpx", ["tracks.gpx", "tracks.tcx"])):
            with self.subTest(only=only), tempfile.TemporaryDirectory() as folder:
                self.assertEqual(generate(folder, *SMALL, "--only", only).returncode, 0)
                self.assertEqual(sorted(os.listdir(folder)), expected)

    def test_bad_options_are_refused_before_writing(self):
        for arguments in (["--points", "0"], ["--points", "4", "--segments", "5"], ["--waypoints", "-1"],
                          ["--only", "gpx,kml"], ["--only", ","]):
            with self.subTest(arguments=arguments), tempfile.TemporaryDirectory() as folder:
                result = generate(Path(folder) / "out", *arguments)
                self.assertEqual(result.returncode, 2, result.stderr)
                self.assertFalse((Path(folder) / "out").exists())


if __name__ == "__main__":
    unittest.main()
