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
        const auto attribute = [&attributes](const char *name) { return attributes.value(name).toString(); };
        const bool isMember = element == "method" || element == "signal" || element == "property";
        if (reader.isStartElement() && element == "interface") {
            current = attribute("name");
        } else if (reader.isStartElement() && isMember) {
            member = attribute("name");
            if (element == "property")
                member += QString(": %1 %2").arg(attribute("type"), attribute("access"));
            arguments.clear();
        } else if (reader.isStartElement() && element == "arg") {
            const QString direction = attribute("direction").isEmpty() ? "out" : attribute("direction");
            arguments << QString("%1 %2 %3").arg(direction, attribute("type"), attribute("name"));
        } else if (reader.isEndElement() && isMember && current == interface) {
            members << QString("%1 %2(%3)").arg(element.toString(), member, arguments.join(", "));
        }
    }
    return members;
}

QString introspectionIn(const QString &reply)
{
    const int start = reply.indexOf("<!DOCTYPE");
    const int end = reply.lastIndexOf("</node>");
    return reply.mid(start, end - start).replace("\\n", "\n") + "</node>";
}

QStringList documentedMembersOf(const QString &interface)
{
    QFile file(QString(CORVANE_DBUS_DIR "/%1.xml").arg(interface));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s cannot be read", qUtf8Printable(file.fileName()));
    return membersOf(interface, QString::fromUtf8(file.readAll()));
}
