// SPDX-License-Identifier: BSD-3-Clause
// Handles two intents: "OpenURI" shows a file, "WriteNote" creates one.
#include <Corvane/RuntimeDispatcher>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QTemporaryFile>
#include <QtCore/QTextStream>
#include <QtCore/QUrl>

using Corvane::IncomingIntent;
using Corvane::RuntimeDispatcher;

namespace {

void say(const QString &text)
{
    QTextStream(stdout) << "viewer: " << text << Qt::endl;
}

// {"uri": "file:///home/ada/poem.txt"} -> {"firstLine": "Roses are red"}
void openUri(const IncomingIntent &intent)
{
    QFile file(QUrl(intent.params().value(QLatin1String("uri")).toString()).toLocalFile());
    if (!file.open(QIODevice::ReadOnly))
        return intent.fail(QStringLiteral("%1: %2").arg(file.fileName(), file.errorString()));
    const QString firstLine = QString::fromUtf8(file.readLine()).trimmed();
    say(QStringLiteral("I show %1, which begins with \"%2\"").arg(file.fileName(), firstLine));
    intent.reply({{QStringLiteral("firstLine"), firstLine}});
}

// {"text": "Buy milk"} -> {"file": "/tmp/note-x1y2z3.txt"}, and the file itself
void writeNote(const IncomingIntent &intent)
{
    QTemporaryFile note(QStringLiteral("/tmp/note-XXXXXX.txt"));
    note.setAutoRemove(false); // the caller becomes its owner
    if (!note.open())
        return intent.fail(note.errorString());
    note.write(intent.params().value(QLatin1String("text")).toString().toUtf8());
    note.close();
    say(QStringLiteral("I have written %1").arg(note.fileName()));
    intent.setOutputFiles({QStringLiteral("file")}); // the library opens the file, and sends its descriptor
    intent.reply({{QStringLiteral("file"), note.fileName()}});
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    RuntimeDispatcher *dispatcher = RuntimeDispatcher::instance();

    dispatcher->registerIntentHandler(QStringLiteral("OpenURI"), openUri);
    dispatcher->registerIntentHandler(QStringLiteral("WriteNote"), writeNote);

    // Intents arrive from now on.
    if (const Corvane::Error error = dispatcher->startService()) {
        say(QStringLiteral("I cannot receive intents: %1").arg(error.message()));
        return 1;
    }
    say(QStringLiteral("I am %1 and wait for intents").arg(dispatcher->applicationInstanceId()));
    return QCoreApplication::exec();
}
