// SPDX-License-Identifier: BSD-3-Clause
#include "payloads.h"

#include <QtCore/QJsonArray>

namespace Payloads {

namespace {

QJsonValue scalar(int number)
{
    switch (number % 4) {
    case 0:
        return QStringLiteral("text of member %1").arg(number);
    case 1:
        return number;
    case 2:
        return number / 8.0;
    default:
        return number % 8 == 3;
    }
}

QString key(int number)
{
    return QStringLiteral("member%1").arg(number, 6, 10, QLatin1Char('0'));
}

} // namespace

QJsonObject small()
{
    return {{QStringLiteral("mimeType"), QStringLiteral("text/plain")},
            {QStringLiteral("readOnly"), true},
            {QStringLiteral("size"), 1234},
            {QStringLiteral("tags"), QJsonArray{QStringLiteral("note"), QStringLiteral("today")}},
            {QStringLiteral("title"), QStringLiteral("Remember the milk")}};
}

QJsonObject medium()
{
    QJsonObject top = wide(4);
    for (int i = 0; i < 4; ++i) {
        QJsonObject middle = wide(3);
        for (int j = 0; j < 4; ++j)
            middle.insert(QStringLiteral("object%1").arg(j), wide(4));
        top.insert(QStringLiteral("object%1").arg(i), middle);
    }
    return top;
}

QJsonObject nested(int depth)
{
    QJsonObject object = wide(8);
    if (depth > 1)
        object.insert(QStringLiteral("object"), nested(depth - 1));
    return object;
}

QJsonObject wide(int members)
{
    QJsonObject object;
    for (int i = 0; i < members; ++i)
        object.insert(key(i), scalar(i));
    return object;
}

QJsonObject numbers(int count)
{
    QJsonArray array;
    for (int i = 0; i < count; ++i)
        array.append(i / 8.0);
    return {{QStringLiteral("numbers"), array}};
}

QJsonObject objects(int count)
{
    QJsonArray array;
    for (int i = 0; i < count; ++i)
        array.append(wide(4));
    return {{QStringLiteral("objects"), array}};
}

QJsonObject text(int length)
{
    return {{QStringLiteral("text"), QStringLiteral("All work and no play. ").repeated(length / 22 + 1).left(length)}};
}

} // namespace Payloads
