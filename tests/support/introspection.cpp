// SPDX-License-Identifier: BSD-3-Clause
#include "introspection.h"

#include <QtCore/QFile>
#include <QtCore/QXmlStreamReader>

QStringList membersOf(const QString &interface, const QString &xml)
{
    QStringList members;
    QString current;
    QString member;
    QStringList arguments;
    QXmlStreamReader reader(xml);
    while (!reader.atEnd()) {
        reader.readNext();
        const QStringRef element = reader.name();
        const QXmlStreamAttributes attributes = reader.attributes();
        const auto attribute = [&attributes](const char *name) {
            return attributes.value(QLatin1String(name)).toString();
        };
        const bool isMember = element == QLatin1String("method") || element == QLatin1String("signal")
            || element == QLatin1String("property");
        if (reader.isStartElement() && element == QLatin1String("interface")) {
            current = attribute("name");
        } else if (reader.isStartElement() && isMember) {
            member = attribute("name");
            if (element == QLatin1String("property"))
                member += QStringLiteral(": %1 %2").arg(attribute("type"), attribute("access"));
            arguments.clear();
        } else if (reader.isStartElement() && element == QLatin1String("arg")) {
            const QString direction = attribute("direction").isEmpty() ? QStringLiteral("out") : attribute("direction");
            arguments << QStringLiteral("%1 %2 %3").arg(direction, attribute("type"), attribute("name"));
        } else if (reader.isEndElement() && isMember && current == interface) {
            members << QStringLiteral("%1 %2(%3)").arg(element.toString(), member, arguments.join(QLatin1String(", ")));
        }
    }
    return members;
}

QString introspectionIn(const QString &reply)
{
    const int start = reply.indexOf(QLatin1String("<!DOCTYPE"));
    const int end = reply.lastIndexOf(QLatin1String("</node>"));
    return reply.mid(start, end - start).replace(QLatin1String("\\n"), QLatin1String("\n")) + QLatin1String("</node>");
}

QStringList documentedMembersOf(const QString &interface)
{
    QFile file(QStringLiteral(CORVANE_DBUS_DIR "/%1.xml").arg(interface));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s cannot be read", qUtf8Printable(file.fileName()));
    return membersOf(interface, QString::fromUtf8(file.readAll()));
}
