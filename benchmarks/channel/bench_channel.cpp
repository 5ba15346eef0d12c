// SPDX-License-Identifier: BSD-3-Clause
// Measures the cost of a frame on the task channel between two processes. The other process uses the same variant. It
// either counts frames and replies to every hundredth, or returns each frame.
//   bench_channel quick|full FILE
#include "ends.h"
#include "payloads.h"

#include <measure.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <ctime>
#include <memory>

namespace {

const int FramesInARow = 100;

QJsonObject messageOf(int size)
{
    int members = 1;
    while (QJsonDocument(Payloads::wide(members + 1)).toJson(QJsonDocument::Compact).size() <= size)
        ++members;
    return Payloads::wide(members);
}

/// One end in this process and one in another process.
class Pair
{
public:
    Pair(const QString &kind, const QString &mode, const QString &path)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("end"), kind, mode, path});
        if (!m_process.waitForReadyRead()) // until it listens
            qFatal("The other end of %s does not start", qPrintable(kind));
        m_end = connectedEnd(kind, path);
    }
    ~Pair()
    {
        m_end.reset();
        m_process.waitForFinished(); // it ends with the connection
    }
    Q_DISABLE_COPY_MOVE(Pair)

    End *end() const { return m_end.get(); }
    /// The processor time of both ends, in nanoseconds.
    qint64 processorTime() const
    {
        clockid_t other = 0;
        ::clock_getcpuclockid(pid_t(m_process.processId()), &other);
        return nanoseconds(CLOCK_PROCESS_CPUTIME_ID) + nanoseconds(other);
    }

private:
    static qint64 nanoseconds(clockid_t clock)
    {
        timespec time = {};
        ::clock_gettime(clock, &time);
        return qint64(time.tv_sec) * 1000000000 + time.tv_nsec;
    }

    QProcess m_process;
    std::unique_ptr<End> m_end;
};

int serve(const QStringList &arguments)
{
    const auto end = listeningEnd(arguments.value(2), arguments.value(4));
    if (arguments.value(3) == QLatin1String("echo")) {
        while (end->receive())
            end->sendReceived();
        return 0;
    }
    const QJsonObject answer{{QStringLiteral("received"), FramesInARow}};
    end->setMessage(answer);
    for (int i = 1; end->receive(); ++i) {
        if (i % FramesInARow == 0)
            end->send();
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    if (QCoreApplication::arguments().value(1) == QLatin1String("end"))
        return serve(QCoreApplication::arguments());

    Results results(QCoreApplication::arguments());
    const QTemporaryDir directory;
    const QStringList kinds{QStringLiteral("corvane"), QStringLiteral("QLocalSocket"), QStringLiteral("raw socket"),
                            QStringLiteral("floor: no JSON")};
    std::vector<std::unique_ptr<Pair>> sinks;
    std::vector<std::unique_ptr<Pair>> echoes;
    for (const QString &kind : kinds) {
        const QString path = directory.filePath(QString::number(sinks.size()));
        sinks.push_back(std::make_unique<Pair>(kind, QStringLiteral("count"), path + QStringLiteral(".count")));
        echoes.push_back(std::make_unique<Pair>(kind, QStringLiteral("echo"), path + QStringLiteral(".echo")));
    }

    for (const int size : {100, 1024, 10 * 1024, 30 * 1024}) {
        const QJsonObject message = messageOf(size);
        const auto json = [message](int frames) {
            for (int i = 0; i < frames; ++i)
                QJsonDocument::fromJson(QJsonDocument(message).toJson(QJsonDocument::Compact)).object();
        };
        std::vector<Variant> rows;
        std::vector<Variant> pingPongs;
        for (size_t i = 0; i < sinks.size(); ++i) {
            const QString &kind = kinds.at(int(i));
            End *const sink = sinks[i]->end();
            End *const echo = echoes[i]->end();
            sink->setMessage(message);
            echo->setMessage(message);
            rows.push_back({kind, [sink] {
                                for (int frame = 0; frame < FramesInARow; ++frame)
                                    sink->send();
                                if (!sink->receive())
                                    qFatal("The connection is lost");
                            }});
            pingPongs.push_back({kind, [echo] {
                                     echo->send();
                                     if (!echo->receive())
                                         qFatal("The connection is lost");
                                 }});
        }
        rows.push_back({QStringLiteral("JSON alone"), [json] { json(FramesInARow); }});
        pingPongs.push_back({QStringLiteral("JSON alone"), [json] { json(2); }});
        const QString name = size < 1024 ? QStringLiteral("%1 B").arg(size) : QStringLiteral("%1 KiB").arg(size / 1024);
        measure(results, QStringLiteral("Task channel, 100 frames one way"), name, rows);
        measure(results, QStringLiteral("Task channel, ping-pong"), name, pingPongs);
        for (size_t i = 0; i < sinks.size(); ++i) {
            rows[i].clock = [pair = sinks[i].get()] { return pair->processorTime(); };
            pingPongs[i].clock = [pair = echoes[i].get()] { return pair->processorTime(); };
        }
        measure(results, QStringLiteral("Task channel, 100 frames one way, processor time of both ends"), name, rows);
        measure(results, QStringLiteral("Task channel, ping-pong, processor time of both ends"), name, pingPongs);
    }
    results.write();
    return 0;
}
