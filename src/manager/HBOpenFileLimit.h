#pragma once

#include <QtGlobal>

// The number of files the process may hold open (RLIMIT_NOFILE), set for
// the track manager's point files.
//
// Points are kept in one file per ten-day period, so that an import or a
// query touches only the periods it needs, and a period file stays open
// from its first use to the end of the process, in both managers'
// coordinators. Ten years of points are some 365 files and well over a
// thousand descriptors, past the usual soft limit of 1024; a period file
// that cannot be opened loses its points to another file. So the soft limit
// is raised to the hard one when the first manager opens its stores.
class HBOpenFileLimit
{
public:
    // Descriptors one open period file holds: the database file and its
    // write-ahead log in each of the two coordinators, and the shared
    // memory of the log, which both use through one descriptor.
    static constexpr quint64 kDescriptorsPerPeriodFile = 5;
    // Descriptors left for everything else: the standard streams, the
    // central and dateless stores, the file being imported, the toolkit's own.
    static constexpr quint64 kReservedDescriptors = 32;
    // The soft limit is raised no further than this (the hard limit may be
    // unlimited), which is room for thirty years of periods many times over.
    static constexpr quint64 kCeiling = 65536;
    // Ten years of ten-day periods: fewer than this open at once is warned of.
    static constexpr quint64 kPeriodFilesWanted = 366;

    // Raises the soft limit to the hard limit (at most kCeiling) and logs
    // from what to what, warning when the result holds fewer than
    // kPeriodFilesWanted period files. Runs once per process; later calls
    // do nothing.
    static void raiseOnce();
    // How many period files can be open at once within a soft limit.
    static quint64 periodFilesWithin(quint64 softLimit);
};
