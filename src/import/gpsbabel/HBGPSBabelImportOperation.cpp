#include "import/gpsbabel/HBGPSBabelImportOperation.h"

#include "platform/HBUserDefaults.h"

#include <QFileInfo>
#include <QProcess>

namespace {

// How long one wait for output lasts before a cancellation is checked again.
constexpr int kCancellationCheckMilliseconds = 100;

QString fromASCII(const QByteArray &bytes)
{
    QString text;
    text.reserve(bytes.size());
    for (const char byte : bytes)
        text.append(uchar(byte) < 0x80 ? QChar(QLatin1Char(byte)) : QChar(QChar::ReplacementCharacter));
    return text;
}

} // namespace

HBGPSBabelImportOperation::HBGPSBabelImportOperation() = default;

HBGPSBabelImportOperation::~HBGPSBabelImportOperation() = default;

QString HBGPSBabelImportOperation::babelOutputText() const
{
    QMutexLocker lock(&m_outputMutex);
    return m_babelOutputText;
}

QString HBGPSBabelImportOperation::gpsbabelProgram()
{
    const QString configured = HBUserDefaults::standardUserDefaults().stringForKey(kHBDefaultGPSBabelProgramPath);
    if (!configured.isEmpty())
        return configured;
    if (const QString built = QStringLiteral(HB_GPSBABEL_PROGRAM); !built.isEmpty())
        return built;
    return QStringLiteral("gpsbabel");
}

void HBGPSBabelImportOperation::main()
{
    m_errorOccurredDuringDownload = false;
    QProcess babel;
    babel.setProgram(gpsbabelProgram());
    babel.setArguments(m_gpsbabelArguments);
    babel.setWorkingDirectory(QFileInfo(m_fileDestinationPath).absolutePath());
    babel.setProcessChannelMode(QProcess::MergedChannels);
    babel.start(QIODevice::ReadOnly);
    // A program that cannot start has written nothing: no message to show.
    if (!babel.waitForStarted(-1) || babel.state() != QProcess::Running)
        return;
    while (babel.state() == QProcess::Running) {
        if (isCancelled()) {
            // gpsbabel may have written part of the file; the flag keeps the
            // manager from importing it.
            babel.kill();
            babel.waitForFinished(-1);
            m_errorOccurredDuringDownload = true;
            return;
        }
        babel.waitForReadyRead(kCancellationCheckMilliseconds);
        takeOutput(babel.readAll());
    }
    // What gpsbabel printed just before it ended.
    takeOutput(babel.readAll());
}

void HBGPSBabelImportOperation::takeOutput(const QByteArray &chunk)
{
    if (chunk.isEmpty())
        return;
    const QString text = fromASCII(chunk);
    {
        QMutexLocker lock(&m_outputMutex);
        m_babelOutputText = text;
    }
    m_errorOccurredDuringDownload = true;
    emit babelOutputTextChanged(text);
}
