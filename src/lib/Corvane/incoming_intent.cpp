// SPDX-License-Identifier: BSD-3-Clause
#include "incoming_intent.h"
#include "incoming_intent_p.h"

#include "file_sharing.h"

#include <DBus/names.h>

#include <QtCore/QDebug>
#include <QtCore/QThread>

#include <utility>

namespace Corvane {

namespace {

QString handlerFailed()
{
    return Names::ErrorPrefix + QLatin1String("HandlerFailed");
}

/// Calls \a function on the thread of \a object: now on this thread, otherwise from its event loop. A function that
/// uses the object later keeps it alive.
template<typename Function>
void callOnThreadOf(QObject *object, Function function)
{
    if (object->thread() == QThread::currentThread())
        function();
    else
        QMetaObject::invokeMethod(object, function, Qt::QueuedConnection);
}

} // namespace

IncomingIntentPrivate::IncomingIntentPrivate(const QString &name, const QJsonObject &parameters,
                                             const QVariantMap &files, const ReceivedCall &call)
    : intentName(name), params(parameters), m_files(files), m_call(call)
{ }

IncomingIntentPrivate::~IncomingIntentPrivate()
{
    if (!answered)
        m_call.fail(handlerFailed(), QStringLiteral("The handler of \"%1\" ended without a reply").arg(intentName));
}

std::shared_ptr<IncomingIntentPrivate> IncomingIntentPrivate::create(const QString &intentName,
                                                                     const QJsonObject &params,
                                                                     const QVariantMap &files, const ReceivedCall &call)
{
    return {new IncomingIntentPrivate(intentName, params, files, call),
            [](IncomingIntentPrivate *intent) { callOnThreadOf(intent, [intent] { delete intent; }); }};
}

void IncomingIntentPrivate::reply(const QJsonObject &result)
{
    m_call.reply(result, m_files, FileSharing::Required, handlerFailed());
}

void IncomingIntentPrivate::fail(const QString &text)
{
    m_call.fail(handlerFailed(), text);
}

void IncomingIntentPrivate::setOutputFiles(const QStringList &readFiles, const QStringList &writeFiles)
{
    FileSharing::setFileLists(readFiles, writeFiles, m_files);
}

IncomingIntent::IncomingIntent() = default;

IncomingIntent::IncomingIntent(std::shared_ptr<IncomingIntentPrivate> intent) : d(std::move(intent)) { }

QString IncomingIntent::intentName() const
{
    return d ? d->intentName : QString();
}

QJsonObject IncomingIntent::params() const
{
    return d ? d->params : QJsonObject();
}

bool IncomingIntent::isAnswered() const
{
    return !d || d->answered;
}

void IncomingIntent::reply(const QJsonObject &result) const
{
    if (startAnswer())
        callOnThreadOf(d.get(), [d = d, result] { d->reply(result); });
}

void IncomingIntent::fail(const QString &text) const
{
    if (startAnswer())
        callOnThreadOf(d.get(), [d = d, text] { d->fail(text); });
}

void IncomingIntent::setOutputFiles(const QStringList &readFiles, const QStringList &writeFiles) const
{
    if (d)
        callOnThreadOf(d.get(), [=, d = d] { d->setOutputFiles(readFiles, writeFiles); });
}

bool IncomingIntent::startAnswer() const
{
    if (d && !d->answered.exchange(true))
        return true;
    qWarning() << "The intent" << intentName() << "is already answered";
    return false;
}

QDebug operator<<(QDebug debug, const IncomingIntent &intent)
{
    const QDebugStateSaver saver(debug);
    debug.nospace() << "Corvane::IncomingIntent(" << intent.intentName()
                    << (intent.isAnswered() ? ", answered)" : ", not answered)");
    return debug;
}

} // namespace Corvane
