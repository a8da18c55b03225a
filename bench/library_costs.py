#!/usr/bin/env python3
"""What a large library costs the hbgps commands, measured on real runs.

- descriptors: a library of --years years (one point file per ten days)
  is made once; then for each command (import of a new file, list, list of
  one day, export, delete of a source) the smallest limit of open files
  (RLIMIT_NOFILE, soft and hard) under which it still succeeds is found by
  bisection, each try on a fresh copy of the library.
- growth: --imports copies of one file of --points points and --waypoints
  waypoints, imported one after the other into one library; per import the
  processor time (user + system) and the peak resident memory of the hbgps
  process, beside xmlwf reading the same file in the same round (a paired
  reference for the machine's speed at that moment).
- listing: `hbgps list --date` of one day on a one-year and on a ten-year
  library, alternated over --runs rounds; medians of processor time.

Python 3 standard library only. Results go to standard output, one line per
figure; progress to standard error.
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
from pathlib import Path

HERE = Path(__file__).resolve().parent
PERIOD_SECONDS = 864000
REFERENCE = 978307200  # 2001-01-01 00:00:00 UTC, where the periods are counted from


def iso(seconds):
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(seconds))


def write_years_gpx(path, years, first_year, points_per_period):
    """One track over `years` years with points in every ten-day period, and
    a waypoint a month."""
    start = REFERENCE + (first_year - 2001) * 365 * 86400
    periods = int(years * 365.25 * 86400 / PERIOD_SECONDS) + 1
    with open(path, "w") as f:
        f.write('<?xml version="1.0" encoding="UTF-8"?>\n<gpx version="1.1" creator="library_costs" '
                'xmlns="http://www.topografix.com/GPX/1/1">\n')
        for month in range(int(years * 12)):
            f.write('<wpt lat="%.6f" lon="%.6f"><name>W%d</name></wpt>\n'
                    % (46.0 + month * 1e-3, 7.0 + month * 1e-3, month))
        f.write("<trk><name>Years</name><trkseg>\n")
        for p in range(periods):
            for i in range(points_per_period):
                t = start + p * PERIOD_SECONDS + 3600 + i * 60
                f.write('<trkpt lat="%.6f" lon="%.6f"><time>%s</time></trkpt>\n'
                        % (46.0 + p * 1e-4 + i * 1e-6, 7.0 + p * 1e-4, iso(t)))
        f.write("</trkseg></trk>\n</gpx>\n")
    return start


def environment(home):
    env = dict(os.environ)
    for name, sub in (("XDG_DATA_HOME", "data"), ("XDG_CACHE_HOME", "cache"), ("XDG_CONFIG_HOME", "config")):
        env[name] = str(Path(home) / sub)
    env["QT_LOGGING_RULES"] = "*.debug=false;*.info=false"
    return env


def run(argv, env, limit=None, cwd=None):
    """Runs a child; returns (exit status, processor seconds, peak MiB)."""
    def limited():
        if limit:
            resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit))
    child = subprocess.Popen(argv, env=env, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                             preexec_fn=limited)
    _, status, usage = os.wait4(child.pid, 0)
    code = os.waitstatus_to_exitcode(status)
    return code, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024.0


def smallest_limit(succeeds, low=16, high=16384):
    """The smallest limit in [low, high] for which succeeds(limit) holds,
    assuming it holds from some limit on; None when not even at high."""
    if not succeeds(high):
        return None
    while low < high:
        middle = (low + high) // 2
        if succeeds(middle):
            high = middle
        else:
            low = middle + 1
    return low


def descriptors(args, hbgps, work):
    library = work / "library"
    years_gpx = work / "years.gpx"
    start = write_years_gpx(years_gpx, args.years, 1995, 3)
    code, _, _ = run([hbgps, "import", str(years_gpx)], environment(library))
    if code != 0:
        sys.exit("library_costs: making the %d-year library failed (%d)" % (args.years, code))
    extra = work / "extra.gpx"
    write_years_gpx(extra, 0.05, 1990, 3)
    day = time.strftime("%Y-%m-%d", time.gmtime(start + 40 * PERIOD_SECONDS + 3600))
    commands = {
        "import": ["import", str(extra)],
        "list": ["list"],
        "list_date": ["list", "--date", day],
        "export": ["export", "-o", str(work / "out.gpx")],
        "delete": ["delete", "--source", years_gpx.name],
    }
    points = len(list((library / "data" / "Fernwick" / "PointDatabases").glob("*.sql")))
    print("LIBRARY years=%s period_files=%d" % (args.years, points))
    for name, arguments in commands.items():
        def succeeds(limit):
            copy = work / "copy"
            shutil.rmtree(copy, ignore_errors=True)
            shutil.copytree(library, copy)
            code, _, _ = run([hbgps] + arguments, environment(copy), limit)
            return code == 0
        print("  trying %s" % name, file=sys.stderr)
        print("DESCRIPTORS %s smallest_limit=%s" % (name, smallest_limit(succeeds)))
        sys.stdout.flush()


def growth(args, hbgps, work):
    home = work / "growth"
    # The same trip in files of their own: each is a new source, and its
    # waypoints and points lie where the library already has some, as a
    # user's rides around home do.
    first = work / "input"
    subprocess.run([sys.executable, str(HERE / "generate_tracks.py"), "--points", str(args.points),
                    "--waypoints", str(args.waypoints), "--segments", "4", "--only", "gpx",
                    "--out", str(first)], check=True, stdout=subprocess.DEVNULL)
    files = []
    for i in range(args.imports):
        folder = work / ("input%d" % i)
        folder.mkdir()
        shutil.copy(first / "tracks.gpx", folder / "tracks.gpx")
        files.append(folder / "tracks.gpx")
    for i, gpx in enumerate(files):
        _, xmlwf_cpu, _ = run(["xmlwf", str(gpx)], environment(home))
        code, cpu, peak = run([hbgps, "import", str(gpx)], environment(home))
        if code != 0:
            sys.exit("library_costs: import %d failed (%d)" % (i + 1, code))
        print("GROWTH import=%d cpu_seconds=%.3f peak_mib=%.1f xmlwf_cpu_seconds=%.3f ratio_to_xmlwf=%.2f"
              % (i + 1, cpu, peak, xmlwf_cpu, cpu / xmlwf_cpu if xmlwf_cpu else 0))
        sys.stdout.flush()
    support = home / "data" / "Fernwick"
    logs = sum(f.stat().st_size for f in support.rglob("*-wal"))
    stores = sum(f.stat().st_size for f in support.rglob("*.sql"))
    print("GROWTH_FILES store_mib=%.1f wal_mib=%.1f" % (stores / 2**20, logs / 2**20))


def listing(args, hbgps, work):
    homes = {}
    for years in (1, 10):
        home = work / ("list%d" % years)
        gpx = work / ("list%d.gpx" % years)
        start = write_years_gpx(gpx, years, 2010, 20)
        code, _, _ = run([hbgps, "import", str(gpx)], environment(home))
        if code != 0:
            sys.exit("library_costs: making the %d-year library failed" % years)
        homes[years] = (home, time.strftime("%Y-%m-%d", time.gmtime(start + 3 * PERIOD_SECONDS + 3600)))
    times = {1: [], 10: []}
    for _ in range(args.runs):
        for years, (home, day) in homes.items():
            code, cpu, _ = run([hbgps, "list", "--date", day], environment(home))
            if code != 0:
                sys.exit("library_costs: list --date failed")
            times[years].append(cpu)
    one, ten = statistics.median(times[1]), statistics.median(times[10])
    print("LISTING one_year_cpu_seconds=%.4f ten_year_cpu_seconds=%.4f ratio=%.2f runs=%d"
          % (one, ten, ten / one if one else 0, args.runs))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--hbgps", default=str(HERE.parent / "build" / "apps" / "hbgps" / "hbgps"))
    parser.add_argument("--only", default="descriptors,growth,listing")
    parser.add_argument("--years", type=float, default=30)
    parser.add_argument("--imports", type=int, default=10)
    parser.add_argument("--points", type=int, default=100000)
    parser.add_argument("--waypoints", type=int, default=100)
    parser.add_argument("--runs", type=int, default=7)
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="library_costs-") as folder:
        work = Path(folder)
        for part in args.only.split(","):
            {"descriptors": descriptors, "growth": growth, "listing": listing}[part](args, args.hbgps, work)


if __name__ == "__main__":
    main()
