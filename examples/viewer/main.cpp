// SPDX-License-Identifier: BSD-3-Clause
// Handles two intents: "OpenURI" shows a file, "WriteNote" creates one.
#include <Corvane/RuntimeDispatcher>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QTemporaryFile>
#include <QtCore/QTextStream>
#include <QtCore/QUrl>

using Corvane::RuntimeDispatcher;

namespace {

void say(const QString &text)
{
    QTextStream(stdout) << "viewer: " << text << Qt::endl;
}

// {"uri": "file:///home/ada/poem.txt"} -> {"shown": true, "firstLine": "Roses are red"}
void openUri(const QJsonObject &params, const RuntimeDispatcher::ReplyFunction &reply)
{
    QFile file(QUrl(params.value(QLatin1String("uri")).toString()).toLocalFile());
    if (!file.open(QIODevice::ReadOnly)) {
        reply({{QStringLiteral("shown"), false}, {QStringLiteral("reason"), file.errorString()}});
        return;
    }
    const QString firstLine = QString::fromUtf8(file.readLine()).trimmed();
    say(QStringLiteral("I show %1, which begins with \"%2\"").arg(file.fileName(), firstLine));
    reply({{QStringLiteral("shown"), true}, {QStringLiteral("firstLine"), firstLine}});
}

// {"text": "Buy milk"} -> {"file": "/tmp/note-x1y2z3.txt"}, and the file itself
void writeNote(const QJsonObject &params, const RuntimeDispatcher::ReplyFunction &reply)
{
    QTemporaryFile note(QStringLiteral("/tmp/note-XXXXXX.txt"));
    note.setAutoRemove(false); // the caller becomes its owner
    if (!note.open()) {
        reply({{QStringLiteral("reason"), note.errorString()}});
        return;
    }
    note.write(params.value(QLatin1String("text")).toString().toUtf8());
    note.close();
    say(QStringLiteral("I have written %1").arg(note.fileName()));
    reply({{QStringLiteral("file"), note.fileName()}});
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    RuntimeDispatcher *dispatcher = RuntimeDispatcher::instance();

    dispatcher->registerIntent(QStringLiteral("OpenURI"), openUri);
    dispatcher->registerIntent(QStringLiteral("WriteNote"), writeNote);
    // The library opens the file at "file" in the reply, and sends its file descriptor with the reply.
    dispatcher->registerIntentOutputFiles(QStringLiteral("WriteNote"), {QStringLiteral("file")}, {});

    // Intents arrive from now on.
    if (const Corvane::Error error = dispatcher->startService()) {
        say(QStringLiteral("I cannot receive intents: %1").arg(error.message()));
        return 1;
    }
    say(QStringLiteral("I am %1 and wait for intents").arg(dispatcher->applicationInstanceId()));
    return QCoreApplication::exec();
}
