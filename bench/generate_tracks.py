#!/usr/bin/env python3
"""Writes the large GPX, TCX and NMEA files that the importer benchmarks read.

All three files hold the same synthetic trip: one fix per second along a
wandering path at cycling speed (a random walk of heading, speed, elevation and
heart rate), cut into segments that start several days apart, so that the
points spread over more than 30 days and land in several ten-day point files.

- tracks.gpx: GPX 1.1, waypoints sitting on the path, then one track with one
  trkseg per segment; latitude and longitude with 6 to 9 decimals, varying
  from point to point; UTC times ending in Z.
- tracks.tcx: one Activity holding one Lap (with one Track) per segment; the
  coordinates are the very texts of the GPX file; times with .000Z.
- tracks.nmea: one $GPRMC and then one $GPGGA sentence per fix, CR LF ended,
  positions as ddmm.mmmm / dddmm.mmmm like a receiver writes them. The RMC
  carries the mode field (14 fields when split at "," and "*") and the GGA has
  its 16; the GGA follows its RMC so that its altitude belongs to that fix.

The output depends only on the options: the same seed writes the same bytes.
Files are written as a stream and renamed into place when complete.
Python 3 standard library only.
"""

import argparse
import calendar
import math
import os
import random
import sys
import time
from pathlib import Path

FORMATS = ("gpx", "tcx", "nmea")
FIRST_START = calendar.timegm((2023, 3, 1, 6, 0, 0))  # seconds since 1970, UTC
SPAN_DAYS = 40  # the segments' start days spread over at least this many days
METRES_PER_DEGREE = 111320.0  # of latitude, and of longitude on the equator
KNOTS_PER_METRE_PER_SECOND = 3600.0 / 1852.0
SYMBOLS = ("Flag", "Campground", "Summit", "Restaurant", "Parking", "Water", "Viewpoint", "Shelter")
COORDINATE_FORMATS = {digits: "%%.%df" % digits for digits in range(6, 10)}

SECONDS_PER_DAY = 86400
ISO_CLOCK = ["%02d:%02d:%02d" % (s // 3600, s // 60 % 60, s % 60) for s in range(SECONDS_PER_DAY)]
NMEA_CLOCK = [c.replace(":", "") for c in ISO_CLOCK]


class Fix:
    """Field positions in the fix tuples that Walk yields (tuples are what a
    million points can afford)."""
    TIME, LAT, LON, ELE, SPEED, HEADING, HEART_RATE, DISTANCE, DIGITS = range(9)


class Walk:
    """The path: a correlated random walk that keeps its state from one segment
    to the next, so that the trip goes on where the previous day stopped."""

    def __init__(self, seed):
        self.rng = random.Random(seed)
        r = self.rng.random
        self.lat = -50.0 + 110.0 * r()  # degrees
        self.lon = -170.0 + 340.0 * r()  # degrees
        self.heading = 2.0 * math.pi * r()  # radians clockwise from north
        self.speed = 4.0 + 4.0 * r()  # metres per second
        self.ele = 50.0 + 800.0 * r()  # metres
        self.heart_rate = 110.0 + 30.0 * r()  # beats per minute
        self.distance = 0.0  # metres since the first fix

    def fixes(self, start, count):
        """Yields count fixes one second apart from start (seconds since 1970)."""
        r = self.rng.random
        cos, sin, radians, pi = math.cos, math.sin, math.radians, math.pi
        lat, lon, heading, speed = self.lat, self.lon, self.heading, self.speed
        ele, heart_rate, distance = self.ele, self.heart_rate, self.distance
        for t in range(start, start + count):
            yield (t, lat, lon, ele, speed, heading, heart_rate, distance, 6 + int(4.0 * r()))
            heading += 0.1 * (r() - 0.5)
            speed = min(12.0, max(2.0, speed + 0.3 * (r() - 0.5)))
            ele = abs(ele + 0.4 * (r() - 0.5))
            heart_rate = min(180.0, max(90.0, heart_rate + 2.0 * (r() - 0.5)))
            lat += speed * cos(heading) / METRES_PER_DEGREE
            lon += speed * sin(heading) / (METRES_PER_DEGREE * cos(radians(lat)))
            distance += speed
            # Turning back before the poles and the date line keeps every
            # coordinate inside its range without any wrapping. Only a heading
            # that still leads outwards turns, so the path leaves the edge.
            if abs(lat) > 80.0 and lat * cos(heading) > 0.0:
                heading = pi - heading
            if abs(lon) > 179.0 and lon * sin(heading) > 0.0:
                heading = -heading
        self.lat, self.lon, self.heading, self.speed = lat, lon, heading, speed
        self.ele, self.heart_rate, self.distance = ele, heart_rate, distance


class Plan:
    """How the points are cut into segments, and when each segment starts."""

    def __init__(self, points, segments):
        base, extra = divmod(points, segments)
        self.sizes = [base + (1 if i < extra else 0) for i in range(segments)]
        longest_days = math.ceil(self.sizes[0] / SECONDS_PER_DAY)
        gap_days = max(longest_days, math.ceil(SPAN_DAYS / (segments - 1))) if segments > 1 else 0
        self.starts = [FIRST_START + i * gap_days * SECONDS_PER_DAY for i in range(segments)]

    def segments(self):
        return zip(self.starts, self.sizes)


class Lap:
    def __init__(self, first):
        self.first = first
        self.last = first
        self.max_speed = first[Fix.SPEED]

    def add(self, fix):
        self.last = fix
        self.max_speed = max(self.max_speed, fix[Fix.SPEED])

    def distance(self):
        return self.last[Fix.DISTANCE] - self.first[Fix.DISTANCE]


def survey(seed, plan, waypoint_count):
    """Walks the path once for what the files need before their points: the
    lap totals of the TCX file and the waypoints that precede the GPX track.
    Waypoint k sits on the fix k * points / waypoints, counted over the trip."""
    points = sum(plan.sizes)
    at = {}
    for k in range(waypoint_count):
        at.setdefault(k * points // waypoint_count, []).append(k)
    walk = Walk(seed)
    laps, waypoints, index = [], [], 0
    for start, count in plan.segments():
        lap = None
        for fix in walk.fixes(start, count):
            if lap is None:
                lap = Lap(fix)
            else:
                lap.add(fix)
            waypoints.extend((k, fix) for k in at.get(index, ()))
            index += 1
        laps.append(lap)
    return laps, waypoints


class DayNames:
    """Date texts per day number since 1970, made once per day."""

    def __init__(self):
        self.cache = {}

    def __call__(self, day):
        names = self.cache.get(day)
        if names is None:
            tm = time.gmtime(day * SECONDS_PER_DAY)
            names = ("%04d-%02d-%02d" % (tm.tm_year, tm.tm_mon, tm.tm_mday),
                     "%02d%02d%02d" % (tm.tm_mday, tm.tm_mon, tm.tm_year % 100))
            self.cache[day] = names
        return names


class Writer:
    """One output file, written to a .part file and renamed when complete."""

    file_name = ""

    def __init__(self, folder, laps, waypoints, seed):
        self.path = Path(folder) / self.file_name
        self.part = self.path.with_name(self.path.name + ".part")
        self.laps, self.waypoints, self.seed = laps, waypoints, seed
        self.days = DayNames()
        self.out = None

    def iso_time(self, t, suffix="Z"):
        day, second = divmod(t, SECONDS_PER_DAY)
        return "%sT%s%s" % (self.days(day)[0], ISO_CLOCK[second], suffix)

    def open(self):
        # newline="" writes each line ending exactly as given.
        self.out = open(self.part, "w", encoding="utf-8", newline="")
        self.begin()

    def close(self):
        self.end()
        self.out.close()
        os.replace(self.part, self.path)

    def begin(self):
        pass

    def begin_segment(self, index):
        pass

    def end_segment(self):
        pass

    def end(self):
        pass


def coordinates(fix):
    """Latitude and longitude texts, both with the fix's own number of decimals."""
    fmt = COORDINATE_FORMATS[fix[Fix.DIGITS]]
    return fmt % fix[Fix.LAT], fmt % fix[Fix.LON]


class GpxWriter(Writer):
    file_name = "tracks.gpx"

    def begin(self):
        w = self.out.write
        w('<?xml version="1.0" encoding="UTF-8"?>\n'
          '<gpx xmlns="http://www.topografix.com/GPX/1/1" '
          'xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" '
          'xsi:schemaLocation="http://www.topografix.com/GPX/1/1 http://www.topografix.com/GPX/1/1/gpx.xsd" '
          'version="1.1" creator="HBGPSKit bench/generate_tracks.py">\n'
          '  <metadata>\n'
          '    <name>Benchmark trip, seed %d</name>\n'
          '    <time>%s</time>\n'
          '  </metadata>\n' % (self.seed, self.iso_time(self.laps[0].first[Fix.TIME])))
        width = max(4, len(str(len(self.waypoints))))
        for k, fix in self.waypoints:
            lat, lon = coordinates(fix)
            w('  <wpt lat="%s" lon="%s">\n'
              '    <ele>%.2f</ele>\n'
              '    <time>%s</time>\n'
              '    <name>WP%0*d</name>\n'
              '    <sym>%s</sym>\n'
              '  </wpt>\n' % (lat, lon, fix[Fix.ELE], self.iso_time(fix[Fix.TIME]),
                              width, k + 1, SYMBOLS[k % len(SYMBOLS)]))
        w('  <trk>\n'
          '    <name>Benchmark trip</name>\n')

    def begin_segment(self, index):
        self.out.write('    <trkseg>\n')

    def write_fix(self, fix):
        lat, lon = coordinates(fix)
        self.out.write('      <trkpt lat="%s" lon="%s">\n'
                       '        <ele>%.2f</ele>\n'
                       '        <time>%s</time>\n'
                       '      </trkpt>\n' % (lat, lon, fix[Fix.ELE], self.iso_time(fix[Fix.TIME])))

    def end_segment(self):
        self.out.write('    </trkseg>\n')

    def end(self):
        self.out.write('  </trk>\n'
                       '</gpx>\n')


class TcxWriter(Writer):
    file_name = "tracks.tcx"

    def begin(self):
        self.out.write(
            '<?xml version="1.0" encoding="UTF-8"?>\n'
            '<TrainingCenterDatabase xmlns="http://www.garmin.com/xmlschemas/TrainingCenterDatabase/v2" '
            'xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" '
            'xsi:schemaLocation="http://www.garmin.com/xmlschemas/TrainingCenterDatabase/v2 '
            'http://www.garmin.com/xmlschemas/TrainingCenterDatabasev2.xsd">\n'
            '  <Activities>\n'
            '    <Activity Sport="Biking">\n'
            '      <Id>%s</Id>\n' % self.iso_time(self.laps[0].first[Fix.TIME], ".000Z"))

    def begin_segment(self, index):
        lap = self.laps[index]
        distance = lap.distance()
        self.out.write(
            '      <Lap StartTime="%s">\n'
            '        <TotalTimeSeconds>%d</TotalTimeSeconds>\n'
            '        <DistanceMeters>%.2f</DistanceMeters>\n'
            '        <MaximumSpeed>%.3f</MaximumSpeed>\n'
            '        <Calories>%d</Calories>\n'
            '        <Intensity>Active</Intensity>\n'
            '        <TriggerMethod>Manual</TriggerMethod>\n'
            '        <Track>\n' % (self.iso_time(lap.first[Fix.TIME], ".000Z"),
                                   lap.last[Fix.TIME] - lap.first[Fix.TIME], distance,
                                   lap.max_speed, round(distance * 0.025)))  # about 25 kcal per km

    def write_fix(self, fix):
        lat, lon = coordinates(fix)
        self.out.write(
            '          <Trackpoint>\n'
            '            <Time>%s</Time>\n'
            '            <Position>\n'
            '              <LatitudeDegrees>%s</LatitudeDegrees>\n'
            '              <LongitudeDegrees>%s</LongitudeDegrees>\n'
            '            </Position>\n'
            '            <AltitudeMeters>%.2f</AltitudeMeters>\n'
            '            <DistanceMeters>%.2f</DistanceMeters>\n'
            '            <HeartRateBpm><Value>%d</Value></HeartRateBpm>\n'
            '          </Trackpoint>\n' % (self.iso_time(fix[Fix.TIME], ".000Z"), lat, lon, fix[Fix.ELE],
                                           fix[Fix.DISTANCE], fix[Fix.HEART_RATE]))

    def end_segment(self):
        self.out.write('        </Track>\n'
                       '      </Lap>\n')

    def end(self):
        self.out.write('    </Activity>\n'
                       '  </Activities>\n'
                       '</TrainingCenterDatabase>\n')


# Folding the sentence's bytes, read as one integer, onto itself halves it at
# each step; the checksum is the XOR of all bytes. Sentences are at most 82
# characters, well inside the 128 bytes these folds cover.
CHECKSUM_FOLDS = tuple((8 * width, (1 << (8 * width)) - 1) for width in (64, 32, 16, 8, 4, 2, 1))


def nmea_checksum(body):
    """XOR of the characters between "$" and "*"."""
    x = int.from_bytes(body.encode("ascii"), "little")
    for shift, mask in CHECKSUM_FOLDS:
        x = (x >> shift) ^ (x & mask)
    return x


def nmea_angle(value, degree_digits, positive, negative):
    """ddmm.mmmm (latitude) or dddmm.mmmm (longitude) and its hemisphere letter.
    Rounding whole ten-thousandths of a minute never gives 60 minutes."""
    total = round(abs(value) * 600000)
    degrees, rest = divmod(total, 600000)
    minutes, fraction = divmod(rest, 10000)
    return "%0*d%02d.%04d" % (degree_digits, degrees, minutes, fraction), (negative if value < 0 else positive)


class NmeaWriter(Writer):
    file_name = "tracks.nmea"

    def write_fix(self, fix):
        t = fix[Fix.TIME]
        day, second = divmod(t, SECONDS_PER_DAY)
        clock = NMEA_CLOCK[second]
        lat, ns = nmea_angle(fix[Fix.LAT], 2, "N", "S")
        lon, ew = nmea_angle(fix[Fix.LON], 3, "E", "W")
        course = math.degrees(fix[Fix.HEADING]) % 360.0
        rmc = "GPRMC,%s.00,A,%s,%s,%s,%s,%.2f,%.2f,%s,,,A" % (
            clock, lat, ns, lon, ew, fix[Fix.SPEED] * KNOTS_PER_METRE_PER_SECOND, course, self.days(day)[1])
        # Satellites in view and dilution drift slowly, as they do on a receiver.
        gga = "GPGGA,%s.00,%s,%s,%s,%s,1,%02d,%.1f,%.1f,M,47.3,M,," % (
            clock, lat, ns, lon, ew, 6 + t // 97 % 7, 0.8 + t // 61 % 8 * 0.1, fix[Fix.ELE])
        self.out.write("$%s*%02X\r\n$%s*%02X\r\n" % (rmc, nmea_checksum(rmc), gga, nmea_checksum(gga)))


WRITERS = {"gpx": GpxWriter, "tcx": TcxWriter, "nmea": NmeaWriter}


def positive_int(text):
    value = int(text)
    if value < 1:
        raise argparse.ArgumentTypeError("must be 1 or more")
    return value


def non_negative_int(text):
    value = int(text)
    if value < 0:
        raise argparse.ArgumentTypeError("must be 0 or more")
    return value


def format_list(text):
    names = [name.strip() for name in text.split(",") if name.strip()]
    unknown = [name for name in names if name not in FORMATS]
    if unknown or not names:
        raise argparse.ArgumentTypeError("choose from %s" % ",".join(FORMATS))
    return [name for name in FORMATS if name in names]


def parse_arguments(argv):
    parser = argparse.ArgumentParser(
        description="Write tracks.gpx, tracks.tcx and tracks.nmea: the same synthetic trip of one fix per "
                    "second, in segments on days spread over more than 30 days, for the importer benchmarks.")
    parser.add_argument("--points", metavar="N", type=positive_int, default=1000000, help="track points (default 1000000)")
    parser.add_argument("--waypoints", metavar="W", type=non_negative_int, default=1000,
                        help="GPX waypoints, placed along the path (default 1000)")
    parser.add_argument("--segments", metavar="S", type=positive_int, default=10,
                        help="GPX track segments, TCX laps (default 10)")
    parser.add_argument("--out", metavar="DIR", default=str(Path(__file__).resolve().parent.parent / "build" / "bench-inputs"),
                        help="output folder, made if missing (default: build/bench-inputs in the repository)")
    parser.add_argument("--only", metavar="LIST", type=format_list, default=list(FORMATS),
                        help="comma-separated subset of gpx,tcx,nmea (default: all three)")
    parser.add_argument("--seed", type=int, default=1, help="seed of the path (default 1)")
    args = parser.parse_args(argv)
    if args.segments > args.points:
        parser.error("--segments must not exceed --points")
    return args


def main(argv):
    args = parse_arguments(argv)
    began = time.monotonic()
    Path(args.out).mkdir(parents=True, exist_ok=True)
    plan = Plan(args.points, args.segments)
    laps, waypoints = survey(args.seed, plan, args.waypoints)
    writers = [WRITERS[name](args.out, laps, waypoints, args.seed) for name in args.only]
    for writer in writers:
        writer.open()
    walk = Walk(args.seed)
    for index, (start, count) in enumerate(plan.segments()):
        for writer in writers:
            writer.begin_segment(index)
        write_fix = [writer.write_fix for writer in writers]
        for fix in walk.fixes(start, count):
            for write in write_fix:
                write(fix)
        for writer in writers:
            writer.end_segment()
    for writer in writers:
        writer.close()
        print("%s: %d bytes" % (writer.path, writer.path.stat().st_size))
    print("%d points, %d waypoints, %d segments in %.1f s" % (
        args.points, args.waypoints, args.segments, time.monotonic() - began))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
