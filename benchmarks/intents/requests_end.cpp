// SPDX-License-Identifier: BSD-3-Clause
// The same as corvane_end.cpp, with IntentRequest and IncomingIntent.
#include "caller.h"
#include "process.h"

#include <Corvane/IntentRequest>
#include <Corvane/IntentsInvoker>
#include <Corvane/RuntimeDispatcher>

#include <QtCore/QCoreApplication>

namespace {

class RequestCaller : public Caller
{
private:
    void send(const Intent &intent) override
    {
        QJsonObject hints;
        if (intent.params.contains(QLatin1String("files")))
            hints.insert(QStringLiteral("readFiles"), QJsonArray{QLatin1String(SharedFiles::Path)});
        auto *const request = m_invoker.request(intent.name, hints, intent.params);
        request->setAutoDelete(true);
        request->then(nullptr, [this](const QJsonObject &reply, const Corvane::Error &error) {
            if (error)
                qFatal("%s", qPrintable(error.message()));
            onReply(reply);
        });
    }

    void processEvents() override
    {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    Corvane::IntentsInvoker m_invoker;
};

} // namespace

int main(int argc, char **argv)
{
    dieWithParent();
    const QCoreApplication application(argc, argv);
    if (isCaller(argc, argv)) {
        RequestCaller().run();
        return 0;
    }
    auto *const dispatcher = Corvane::RuntimeDispatcher::instance();
    dispatcher->registerIntentHandler(QString::fromUtf8(handledIntent()),
                                      [](const Corvane::IncomingIntent &intent) { intent.reply(intent.params()); });
    if (const Corvane::Error error = dispatcher->startService())
        qFatal("%s", qPrintable(error.message()));
    tellReady();
    return QCoreApplication::exec();
}
