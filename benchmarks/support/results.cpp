// SPDX-License-Identifier: BSD-3-Clause
#include "results.h"

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QStringList>

Results::Results(const QStringList &arguments)
{
    const QString mode = arguments.value(1);
    m_quick = mode == QLatin1String("quick");
    m_file = arguments.value(2);
    if (arguments.size() != 3 || (!m_quick && mode != QLatin1String("full")))
        qFatal("Usage: %s quick|full FILE", qPrintable(arguments.value(0)));
}

void Results::add(const QString &topic, const QString &caseName, const QString &variant, const QString &unit,
                  const QVector<double> &samples)
{
    QJsonArray array;
    for (const double sample : samples)
        array.append(sample);
    m_rows.append(QJsonObject{{QStringLiteral("topic"), topic},
                              {QStringLiteral("case"), caseName},
                              {QStringLiteral("variant"), variant},
                              {QStringLiteral("unit"), unit},
                              {QStringLiteral("samples"), array}});
}

void Results::write() const
{
    QFile file(m_file);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(m_rows).toJson()) < 0)
        qFatal("%s: %s", qPrintable(m_file), qPrintable(file.errorString()));
}
