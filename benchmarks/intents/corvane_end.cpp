// SPDX-License-Identifier: BSD-3-Clause
#include "caller.h"
#include "process.h"

#include <Corvane/IntentsInvoker>
#include <Corvane/RuntimeDispatcher>

#include <QtCore/QCoreApplication>

namespace {

class CorvaneCaller : public Caller
{
public:
    CorvaneCaller()
    {
        QObject::connect(&m_invoker, &Corvane::IntentsInvoker::replyReceived, &m_invoker,
                         [this](const QJsonObject &reply, const Corvane::Error &error) {
                             if (error)
                                 qFatal("%s", qPrintable(error.message()));
                             onReply(reply);
                         });
    }

private:
    void send(const Intent &intent) override
    {
        QJsonObject hints;
        if (intent.params.contains(QLatin1String("files")))
            hints.insert(QStringLiteral("readFiles"), QJsonArray{QLatin1String(SharedFiles::Path)});
        m_invoker.invoke(intent.name, hints, intent.params);
    }

    void processEvents() override { QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents); }

    Corvane::IntentsInvoker m_invoker;
};

} // namespace

int main(int argc, char **argv)
{
    dieWithParent();
    const QCoreApplication application(argc, argv);
    if (isCaller(argc, argv)) {
        CorvaneCaller().run();
        return 0;
    }
    auto *const dispatcher = Corvane::RuntimeDispatcher::instance();
    dispatcher->registerIntent(QString::fromUtf8(handledIntent()),
                               [](const QJsonObject &params, const auto &reply) { reply(params); });
    if (const Corvane::Error error = dispatcher->startService())
        qFatal("%s", qPrintable(error.message()));
    tellReady();
    return QCoreApplication::exec();
}
