// SPDX-License-Identifier: BSD-3-Clause
#include "show_status.h"

#include "complain.h"
#include "exit_code.h"
#include "running_stand_in.h"
#include "status.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

#include <cstdlib>

namespace {

QStringList ids(const QJsonObject &status, StatusOptions::Format format)
{
    const QString key = format == StatusOptions::Tasks ? QStringLiteral("tasks") : QStringLiteral("applications");
    QStringList list;
    const QJsonArray array = status.value(key).toArray();
    for (const QJsonValue &element : array) {
        const QJsonObject object = element.toObject();
        if (format == StatusOptions::Intents)
            list += object.value(QLatin1String("intents")).toVariant().toStringList();
        else
            list += object.value(QLatin1String("id")).toString();
    }
    return list;
}

} // namespace

int showStatus(const StatusOptions &options)
{
    const bool isList = options.format != StatusOptions::Text && options.format != StatusOptions::Json;
    const RunningStandIn standIn(options.name);
    if (isList && standIn.isAbsent())
        return EXIT_SUCCESS; // a shell that completes a word prints nothing
    if (!standIn.problem().isEmpty()) {
        complain(standIn.problem());
        return ExitCode::Bus;
    }
    const QDBusMessage reply = standIn.call(QStringLiteral("GetStatus"));
    if (reply.type() != QDBusMessage::ReplyMessage) {
        complain(reply.errorMessage());
        return EXIT_FAILURE;
    }
    const QByteArray json = reply.arguments().value(0).toString().toUtf8();
    const QJsonObject status = QJsonDocument::fromJson(json).object();
    QTextStream out(stdout);
    out.setCodec("UTF-8");
    if (options.format == StatusOptions::Json)
        out << QString::fromUtf8(QJsonDocument(status).toJson());
    else if (options.format == StatusOptions::Text)
        out << Status::text(status);
    const QStringList list = isList ? ids(status, options.format) : QStringList();
    for (const QString &id : list)
        out << id << '\n';
    return EXIT_SUCCESS;
}
