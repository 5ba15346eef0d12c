// SPDX-License-Identifier: BSD-3-Clause
// Invokes two intents: another application opens a file, and then writes a note.
#include <Corvane/IntentsInvoker>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QTextStream>

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

// Prints a reply. Ends the program if the intent has failed.
bool showReply(const QJsonObject &reply, const Corvane::Error &error)
{
    if (error) {
        say(QStringLiteral("That failed: %1").arg(error.message()));
        QCoreApplication::exit(1);
        return false;
    }
    say(QStringLiteral("The reply is %1").arg(toText(reply)));
    return true;
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

    // One invoker per call: replyReceived() does not identify the call.
    IntentsInvoker opener;
    IntentsInvoker writer;

    QObject::connect(&opener, &IntentsInvoker::replyReceived, &writer, [&writer](const auto &reply, const auto &error) {
        if (!showReply(reply, error))
            return;
        if (!reply.value(QLatin1String("shown")).toBool()) {
            QCoreApplication::exit(1);
            return;
        }
        const QJsonObject params{{QStringLiteral("text"), QStringLiteral("Remember the milk.")}};
        say(QStringLiteral("Please WriteNote %1").arg(toText(params)));
        writer.invoke(QStringLiteral("WriteNote"), {}, params);
    });

    QObject::connect(&writer, &IntentsInvoker::replyReceived, &writer, [](const auto &reply, const auto &error) {
        if (!showReply(reply, error))
            return;
        QFile note(reply.value(QLatin1String("file")).toString());
        if (!note.open(QIODevice::ReadOnly)) {
            say(QStringLiteral("The note cannot be read: %1").arg(note.errorString()));
            QCoreApplication::exit(1);
            return;
        }
        say(QStringLiteral("The note says \"%1\"").arg(QString::fromUtf8(note.readAll())));
        note.remove();
        QCoreApplication::quit();
    });

    // The library opens the file at "uri" and sends its file descriptor with the intent.
    const QString path = QFileInfo(arguments.at(1)).absoluteFilePath();
    const QJsonObject params{{QStringLiteral("uri"), QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded)}};
    say(QStringLiteral("Please OpenURI %1").arg(toText(params)));
    opener.invoke(QStringLiteral("OpenURI"), {}, params);
    return QCoreApplication::exec();
}
