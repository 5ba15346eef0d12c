// SPDX-License-Identifier: BSD-3-Clause
#include "trace_p.h"

#include <DBus/json.h>
#include <DBus/message_meter.h>

#include <QtCore/QDebug>

#include <atomic>
#include <utility>

namespace Corvane {

Q_LOGGING_CATEGORY(traceCategory, "corvane.trace", QtInfoMsg)

namespace {

quint64 nextNumber()
{
    static std::atomic<quint64> last{0}; // an invoker may live on any thread
    return ++last;
}

QDebug operator<<(QDebug debug, const Trace::Size &size)
{
    return debug << size.bytes << " bytes, " << size.descriptors << " descriptors";
}

template<typename... Parts>
void log(const Parts &...parts)
{
    QString text;
    (QDebug(&text).nospace() << ... << parts);
    qCDebug(traceCategory, "%s", qUtf8Printable(text));
}

Trace::Size sizeOf(MessageMeter &meter, const QJsonObject &object)
{
    Omissions omissions;
    meter.add(toBusObject(object, Place::Params, &omissions));
    return {meter.bytes(), meter.descriptors()};
}

} // namespace

Trace::Operation::Operation(const char *operation, const QString &name, const Size &size)
    : m_kind(operation), m_number(nextNumber())
{
    m_timer.start();
    log(m_kind, ' ', m_number, " begins: ", name, ", ", size);
}

Trace::Operation::~Operation()
{
    end("dropped");
}

void Trace::Operation::end(const Error &error, const Size &size)
{
    if (!std::exchange(m_hasEnded, true))
        log(m_kind, ' ', m_number, " ends: ", error.code(), ", ", size, ", ", m_timer.elapsed(), " ms");
}

void Trace::Operation::end(const char *outcome)
{
    if (!std::exchange(m_hasEnded, true))
        log(m_kind, ' ', m_number, " ends: ", outcome, ", ", m_timer.elapsed(), " ms");
}

Trace::Size sizeOfReply(const QJsonObject &reply)
{
    MessageMeter meter;
    return sizeOf(meter, reply);
}

Trace::Size sizeOfIntent(const QString &intentName, const QJsonObject &params)
{
    MessageMeter meter;
    meter.add(intentName);
    return sizeOf(meter, params);
}

} // namespace Corvane
