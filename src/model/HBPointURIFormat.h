#pragma once

#include <QString>
#include <QStringView>
#include <QUrl>

#include <optional>

// The vocabulary of the point URI list's binary form (see HBPointURIList),
// shared by its encoder and its readers.
namespace HBPointURIFormat {

enum RunKind : quint8 { SequenceRun = 0, DeltasRun = 1, Utf8Run = 2, Utf16Run = 3 };
constexpr int runKindBits = 2;
constexpr quint64 runKindMask = (1u << runKindBits) - 1;

constexpr QLatin1StringView uriPrefix("x-hbgps://");

// From this many entries on, a constant key step earns a sequence run of its
// own: a shorter one would save fewer bytes of key differences than the
// headers of the sequence and of the deltas run after it cost.
constexpr qsizetype minimumSequence = 16;

// Zigzag maps small negative differences to small unsigned numbers, so that
// a key that steps back costs as few bytes as one that steps forward.
quint64 zigzag(quint64 value);
quint64 unzigzag(quint64 value);

// Store identifiers and entity names taken apart are kept to letters,
// digits, '_' and '-': such a name means the same inside a URI wherever it
// stands, so a URI rebuilt around it parses as the original did.
bool isPlainName(QStringView name);

// The key of "p<key>" when the digits are exactly those QString::number
// writes for a qint64: no sign but a minus, no leading zeros, no "-0".
std::optional<quint64> canonicalKey(QStringView text);

struct PathParts
{
    QStringView entity;
    quint64 key;
};

// "/<entity>/p<key>", the path of a permanent URI, taken apart where it is
// rebuilt character for character from its parts.
std::optional<PathParts> permanentPathParts(QStringView path);

struct PermanentParts
{
    QStringView store;
    PathParts path;
};

// "x-hbgps://<store>/<entity>/p<key>", likewise.
std::optional<PermanentParts> permanentParts(QStringView text);

QString textOf(const QUrl &uri);

// prefix followed by the key as QString::number writes a qint64, in one
// allocation: this runs once per point while a list is decoded.
QString withKey(QStringView prefix, quint64 key);

}
