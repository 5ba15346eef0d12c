// SPDX-License-Identifier: BSD-3-Clause
#include "caller.h"
#include "process.h"

#include <qtdbus.h>

#include <DBus/names.h>

#include <QtCore/QCoreApplication>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCallWatcher>
#include <QtDBus/QDBusPendingReply>
#include <QtDBus/QDBusUnixFileDescriptor>
#include <QtDBus/QDBusVirtualObject>

using namespace Corvane;

namespace {

class QtDBusCaller : public Caller
{
    void send(const Intent &intent) override
    {
        QVariantMap hints;
        const SharedFiles files(intent.params);
        if (!files.descriptors().isEmpty()) {
            QList<QDBusUnixFileDescriptor> descriptors;
            for (const int descriptor : files.descriptors())
                descriptors.append(QDBusUnixFileDescriptor(descriptor));
            hints.insert(QStringLiteral("readFds"), QVariant::fromValue(descriptors));
            hints.insert(QStringLiteral("readFiles"), QStringList{QLatin1String(SharedFiles::Path)});
        }
        QDBusMessage call =
            QDBusMessage::createMethodCall(Names::ServiceRoot, Names::Intents.path(),
                                           QLatin1String(Names::Intents.interface), QStringLiteral("InvokeIntent"));
        call << intent.name << hints << QtDBusPeer::toMap(intent.params);
        auto *const watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call));
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [this, watcher] {
            watcher->deleteLater();
            if (watcher->isError())
                qFatal("%s", qPrintable(watcher->error().message()));
            onReply(QtDBusPeer::readObject(watcher->reply().arguments().constFirst().value<QDBusArgument>()));
        });
    }

    void processEvents() override { QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents); }
};

class Handler : public QDBusVirtualObject
{
public:
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &call, const QDBusConnection &bus) override
    {
        const QJsonObject params = QtDBusPeer::readObject(call.arguments().at(1).value<QDBusArgument>());
        return bus.send(call.createReply({QtDBusPeer::toMap(params), m_files}));
    }

private:
    const QVariantMap m_files{{QStringLiteral("readFiles"), QStringList()},
                              {QStringLiteral("writeFiles"), QStringList()}};
};

} // namespace

int main(int argc, char **argv)
{
    dieWithParent();
    const QCoreApplication application(argc, argv);
    QtDBusPeer::registerTypes();
    if (isCaller(argc, argv)) {
        QtDBusCaller().run();
        return 0;
    }
    Handler handler;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerVirtualObject(Names::IntentHandler.path(), &handler)
        || !bus.registerService(QString::fromUtf8(handledIntent())))
        qFatal("The handler is not on the bus");
    tellReady();
    return QCoreApplication::exec();
}
