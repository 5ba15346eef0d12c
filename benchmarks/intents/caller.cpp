// SPDX-License-Identifier: BSD-3-Clause
#include "caller.h"

#include "process.h"

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QUrl>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

void Caller::run()
{
    QFile input;
    QFile output;
    if (!input.open(stdin, QIODevice::ReadOnly) || !output.open(stdout, QIODevice::WriteOnly))
        qFatal("There is nobody to serve");
    for (;;) {
        const QByteArray line = input.readLine();
        if (line.isEmpty())
            return;
        const QJsonObject batch = QJsonDocument::fromJson(line).object();
        m_intent = {batch.value(QLatin1String("intent")).toString(), batch.value(QLatin1String("params")).toObject()};
        m_latencies = {};
        const qint64 processorTime = nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
        m_clock.start();
        runBatch(batch.value(QLatin1String("calls")).toInt(), batch.value(QLatin1String("inFlight")).toInt());
        const QJsonObject result{
            {QStringLiteral("elapsed"), m_clock.nsecsElapsed()},
            {QStringLiteral("processorTime"), nanoseconds(CLOCK_PROCESS_CPUTIME_ID) - processorTime},
            {QStringLiteral("latencies"), m_latencies}};
        if (m_lastReply != m_intent.params)
            qFatal("The reply differs from the request");
        output.write(QJsonDocument(result).toJson(QJsonDocument::Compact) + '\n');
        output.flush();
    }
}

void Caller::runBatch(int calls, int inFlight)
{
    m_unsent = calls;
    for (int i = 0; i < inFlight; ++i)
        sendNext();
    while (m_latencies.size() < calls)
        processEvents();
}

void Caller::sendNext()
{
    --m_unsent;
    m_sent.enqueue(m_clock.nsecsElapsed());
    send(m_intent);
}

void Caller::onReply(const QJsonObject &reply)
{
    m_latencies.append(m_clock.nsecsElapsed() - m_sent.dequeue());
    if (reply.size() != m_intent.params.size())
        qFatal("A reply has %d members", reply.size());
    m_lastReply = reply;
    if (m_unsent > 0)
        sendNext();
}

SharedFiles::SharedFiles(const QJsonObject &params)
{
    const QJsonArray files = params.value(QLatin1String("files")).toArray();
    m_descriptors.reserve(files.size());
    for (const auto &file : files) {
        const QByteArray name = QFile::encodeName(QUrl(file.toString()).toLocalFile());
        m_descriptors.append(::open(name.constData(), O_RDONLY | O_CLOEXEC));
    }
}

SharedFiles::~SharedFiles()
{
    for (const int descriptor : qAsConst(m_descriptors))
        ::close(descriptor);
}
