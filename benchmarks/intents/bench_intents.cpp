// SPDX-License-Identifier: BSD-3-Clause
// Measures the round trip of an intent: from the caller over the bus to a router, to the handler, and back. Caller and
// handler use the same variant, and convert from and to JSON. The bus and the router, which is the same for all
// variants, are included; "floor" is the round trip without content.
#include "process.h"

#include <payloads.h>
#include <results.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QJsonDocument>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtCore/QUrl>

#include <algorithm>
#include <memory>
#include <vector>

namespace {

const int MaxFiles = 16;

struct Load
{
    QString name;
    QJsonObject params;
    int inFlight;
    int calls; ///< of one batch
    int rounds;
};

/// A program in the directory of this one. It ends with this one.
class Program
{
public:
    Program(const QString &name, const QString &role, const QString &instanceId)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HALVIR_APP_INSTANCE_ID"), instanceId);
        m_process.setProcessEnvironment(environment);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QDir(QCoreApplication::applicationDirPath()).filePath(name), {role});
    }
    ~Program()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(Program)

    QByteArray readLine()
    {
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(60000))
                qFatal("%s says nothing", qPrintable(m_process.program()));
        }
        return m_process.readLine();
    }

    QJsonObject ask(const QJsonObject &question)
    {
        m_process.write(QJsonDocument(question).toJson(QJsonDocument::Compact) + '\n');
        return QJsonDocument::fromJson(readLine()).object();
    }

    qint64 processorTime() const
    {
        clockid_t clock = 0;
        ::clock_getcpuclockid(pid_t(m_process.processId()), &clock);
        return nanoseconds(clock);
    }

private:
    QProcess m_process;
};

/// The caller and the handler of one variant.
class Ends
{
public:
    Ends(const QString &stack, const QString &program)
        : m_instanceId(QStringLiteral("bench.") + program),
          m_handler(QStringLiteral("bench_intents_") + program, QStringLiteral("handler"), m_instanceId),
          m_caller(QStringLiteral("bench_intents_") + program, QStringLiteral("caller"), {}), m_stack(stack)
    {
        m_handler.readLine();
    }

    QString stack() const { return m_stack; }

    /// \returns the results of the caller; the processor time is that of both ends
    QJsonObject runBatch(const Load &load)
    {
        const qint64 processorTime = m_handler.processorTime();
        QJsonObject batch = m_caller.ask({{QStringLiteral("intent"), m_instanceId},
                                          {QStringLiteral("params"), load.params},
                                          {QStringLiteral("inFlight"), load.inFlight},
                                          {QStringLiteral("calls"), load.calls}});
        const auto key = QStringLiteral("processorTime");
        batch[key] = batch.value(key).toDouble() + double(m_handler.processorTime() - processorTime);
        return batch;
    }

private:
    const QString m_instanceId;
    Program m_handler;
    Program m_caller;
    const QString m_stack;
};

/// The results of the batches of one row.
struct Row
{
    void add(const QJsonObject &batch)
    {
        QVector<double> own;
        const QJsonArray values = batch.value(QLatin1String("latencies")).toArray();
        for (const auto &value : values)
            own.append(value.toDouble());
        std::sort(own.begin(), own.end());
        medians.append(own.at(own.size() / 2));
        callsPerSecond.append(own.size() * 1e9 / batch.value(QLatin1String("elapsed")).toDouble());
        processorTimes.append(batch.value(QLatin1String("processorTime")).toDouble() / own.size());
        latencies += own;
    }

    double percentile99()
    {
        std::sort(latencies.begin(), latencies.end());
        return latencies.at(latencies.size() * 99 / 100);
    }

    QVector<double> latencies;
    QVector<double> medians;
    QVector<double> callsPerSecond;
    QVector<double> processorTimes; ///< of one call
};

void measure(Results &results, const Load &load, const std::vector<std::unique_ptr<Ends>> &stacks, Ends &floorEnds)
{
    struct Lane
    {
        QString variant;
        Ends *ends;
        Load load;
        Row row;
    };
    Load withoutContent = load;
    withoutContent.params = {};
    std::vector<Lane> lanes;
    lanes.reserve(stacks.size() + 1);
    for (const auto &ends : stacks)
        lanes.push_back({ends->stack(), ends.get(), load, {}});
    lanes.push_back({QStringLiteral("floor"), &floorEnds, withoutContent, {}});

    for (Lane &lane : lanes)
        lane.ends->runBatch(lane.load); // one-time work is not measured
    for (int round = 0; round < load.rounds; ++round) {
        for (size_t i = 0; i < lanes.size(); ++i) {
            Lane &lane = lanes[(i + size_t(round)) % lanes.size()];
            lane.row.add(lane.ends->runBatch(lane.load));
        }
    }
    for (Lane &lane : lanes) {
        const auto add = [&](const char *what, const char *unit, const QVector<double> &samples) {
            results.add(QStringLiteral("Intent round trip, ") + QLatin1String(what), load.name, lane.variant,
                        QLatin1String(unit), samples);
        };
        add("median", "ns", lane.row.medians);
        add("99th percentile", "ns", {lane.row.percentile99()});
        add("processor time of both ends", "ns", lane.row.processorTimes);
        if (load.inFlight > 1)
            add("calls per second (more is better)", "calls/s", lane.row.callsPerSecond);
    }
}

QJsonObject withFiles(const QTemporaryDir &directory, int count)
{
    QJsonArray uris;
    for (int i = 0; i < count; ++i)
        uris.append(QUrl::fromLocalFile(directory.filePath(QString::number(i))).toString());
    QJsonObject object = Payloads::small();
    object.insert(QStringLiteral("files"), uris);
    return object;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    Results results(QCoreApplication::arguments());
    const QTemporaryDir directory;
    for (int i = 0; i < MaxFiles; ++i) {
        QFile file(directory.filePath(QString::number(i)));
        if (!file.open(QIODevice::WriteOnly))
            qFatal("%s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
    }

    Program router(QStringLiteral("bench_intents_router"), {}, {});
    router.readLine();
    std::vector<std::unique_ptr<Ends>> stacks;
    stacks.push_back(std::make_unique<Ends>(QStringLiteral("corvane"), QStringLiteral("corvane")));
    stacks.push_back(std::make_unique<Ends>(QStringLiteral("corvane requests"), QStringLiteral("requests")));
    stacks.push_back(std::make_unique<Ends>(QStringLiteral("QtDBus"), QStringLiteral("qtdbus")));
    stacks.push_back(std::make_unique<Ends>(QStringLiteral("sd-bus"), QStringLiteral("sdbus")));
    stacks.push_back(std::make_unique<Ends>(QStringLiteral("GDBus"), QStringLiteral("gdbus")));
    stacks.push_back(std::make_unique<Ends>(QStringLiteral("libdbus"), QStringLiteral("libdbus")));
    Ends &floorEnds = *stacks.at(3);

    const int rounds = results.rounds();
    QVector<Load> loads{
        {QStringLiteral("small, 1 in flight"), Payloads::small(), 1, 60, rounds},
        {QStringLiteral("medium, 1 in flight"), Payloads::medium(), 1, 30, rounds},
        {QStringLiteral("1 MB text, 1 in flight"), Payloads::text(1000000), 1, 2, rounds},
        {QStringLiteral("small and 1 file, 1 in flight"), withFiles(directory, 1), 1, 60, rounds},
        {QStringLiteral("small and 16 files, 1 in flight"), withFiles(directory, MaxFiles), 1, 30, rounds},
        {QStringLiteral("small, 64 in flight"), Payloads::small(), 64, 128, rounds},
        {QStringLiteral("small, 4,096 in flight"), Payloads::small(), 4096, 8192, rounds / 5},
        {QStringLiteral("medium, 64 in flight"), Payloads::medium(), 64, 128, rounds},
    };
    if (!results.isQuick()) // a round needs seconds
        loads.append({QStringLiteral("1 MB text, 64 in flight"), Payloads::text(1000000), 64, 64, 7});
    for (const Load &load : loads)
        measure(results, load, stacks, floorEnds);
    results.write();
    return 0;
}
