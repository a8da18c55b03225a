#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QDateTime>
#include <QString>
#include <QStringView>

class QFile;

// File names as the file system holds them (bytes) and as the library
// keeps them (text), one to one. A name that is valid UTF-8 reads as its
// text; every byte that is not part of a valid UTF-8 character (a name
// written under another encoding, "caf\xe9.gpx") becomes one character of
// the private-use range U+EF80..U+EFFF, and goes back to that byte. So a
// name reaches its file again whatever its bytes, where Qt would leave it
// out of a folder's listing and could not open it. Valid UTF-8 that spells
// a character of that range is kept as bytes too, so that decoding any
// name and encoding it again gives the same bytes.
class HBFileName
{
public:
    static QString decode(QByteArrayView bytes);
    static QByteArray encode(QStringView name);

    // Opens the named file for reading into `file`, which then owns the
    // descriptor; false, with the system's reason, when it cannot.
    static bool openForReading(QFile &file, const QString &name, QString *error = nullptr);

    // What the file system tells of the named file, links followed.
    struct Status
    {
        bool exists = false;
        bool isDirectory = false;
        qint64 size = 0;      // bytes
        QDateTime modified;   // UTC, to the millisecond as QFileInfo gives it
    };
    static Status status(const QString &name);
};
