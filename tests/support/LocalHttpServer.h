#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

// An HTTP/1.0 server on 127.0.0.1 for tests: answers every GET with one
// status and body (cacheable for a day) and writes down the paths and
// User-Agent headers it was asked with. Nothing in a test reaches another host.
class LocalHttpServer : public QTcpServer
{
public:
    LocalHttpServer(int status, QByteArray body)
        : m_status(status)
        , m_body(std::move(body))
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = nextPendingConnection())
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { answer(socket); });
        });
    }

    QString baseUrl() const { return QStringLiteral("http://127.0.0.1:%1").arg(serverPort()); }
    QStringList paths;
    QList<QByteArray> userAgents;

private:
    void answer(QTcpSocket *socket)
    {
        const QByteArray request = socket->readAll();
        const QList<QByteArray> lines = request.split('\n');
        paths.append(QString::fromLatin1(lines.value(0).split(' ').value(1)));
        for (const QByteArray &line : lines) {
            if (line.toLower().startsWith("user-agent:"))
                userAgents.append(line.mid(11).trimmed());
        }
        socket->write("HTTP/1.0 " + QByteArray::number(m_status) + " X\r\nContent-Type: image/png\r\n"
                      "Cache-Control: max-age=86400\r\nContent-Length: " + QByteArray::number(m_body.size())
                      + "\r\n\r\n" + m_body);
        socket->disconnectFromHost();
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }

    int m_status;
    QByteArray m_body;
};
