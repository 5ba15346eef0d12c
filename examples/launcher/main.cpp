// SPDX-License-Identifier: BSD-3-Clause
// Invokes two intents: another application opens a file, and then writes a note.
#include <Corvane/IntentRequest>
#include <Corvane/IntentsInvoker>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QTextStream>
#include <QtCore/QUrl>

using Corvane::IntentsInvoker;

namespace {

void say(const QString &text)
{
    QTextStream(stdout) << "launcher: " << text << Qt::endl;
}

QString toText(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

// Ends the program.
void stop(const QString &problem)
{
    say(problem);
    QCoreApplication::exit(1);
}

void readNote(const QString &name)
{
    QFile note(name);
    if (!note.open(QIODevice::ReadOnly))
        return stop(QStringLiteral("The note cannot be read: %1").arg(note.errorString()));
    say(QStringLiteral("The note says \"%1\"").arg(QString::fromUtf8(note.readAll())));
    note.remove();
    QCoreApplication::quit();
}

// Sends an intent, and calls a function with its reply.
template<typename Function>
void request(IntentsInvoker *invoker, const QString &intentName, const QJsonObject &params, Function function)
{
    say(QStringLiteral("Please %1 %2").arg(intentName, toText(params)));
    auto *request = invoker->request(intentName, params);
    request->setAutoDelete(true);
    request->then(invoker, [function](const QJsonObject &reply, const Corvane::Error &error) {
        if (error)
            return stop(QStringLiteral("That failed: %1").arg(error.message()));
        say(QStringLiteral("The reply is %1").arg(toText(reply)));
        function(reply);
    });
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 2) {
        QTextStream(stderr) << "Usage: corvane-example-launcher FILE" << Qt::endl;
        return 1;
    }

    // The library opens the file at "uri" and sends its file descriptor with the intent.
    const QString path = QFileInfo(arguments.at(1)).absoluteFilePath();
    const QString uri = QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded);
    IntentsInvoker invoker;
    request(&invoker, QStringLiteral("OpenURI"), {{QStringLiteral("uri"), uri}}, [&invoker](const QJsonObject &) {
        request(&invoker, QStringLiteral("WriteNote"), {{QStringLiteral("text"), QStringLiteral("Remember the milk.")}},
                [](const QJsonObject &reply) { readNote(reply.value(QLatin1String("file")).toString()); });
    });
    return QCoreApplication::exec();
}
