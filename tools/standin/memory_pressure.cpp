// SPDX-License-Identifier: BSD-3-Clause
#include "memory_pressure.h"

#include "complain.h"

#include <Corvane/memory_pressure.h>
#include <DBus/keys.h>
#include <DBus/names.h>

#include <QtCore/QFile>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>

namespace Names = Corvane::Names;
using Levels = Corvane::MemoryPressure;

namespace {

const double Threshold = 10; // percent of the last ten seconds

/// Returns the percentage of the last ten seconds in which processes waited, from the line of \a kind.
double stalled(const QByteArray &pressure, const QByteArray &kind)
{
    const QByteArray start = kind + " avg10=";
    const QList<QByteArray> lines = pressure.split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(start))
            return line.mid(start.size()).split(' ').first().toDouble();
    }
    return 0;
}

} // namespace

MemoryPressure::MemoryPressure(const QString &source, QObject *parent) : QObject(parent), m_source(source)
{
    m_timer.setInterval(1000);
    connect(&m_timer, &QTimer::timeout, this, &MemoryPressure::read);
}

void MemoryPressure::setLevel(int level)
{
    m_isSet = true;
    m_timer.stop();
    update(level);
}

void MemoryPressure::follow()
{
    m_isSet = false;
    if (m_subscribed)
        m_timer.start();
    read();
}

void MemoryPressure::Subscribe()
{
    if (std::exchange(m_subscribed, true) || m_isSet)
        return;
    QFile file(m_source);
    if (!file.open(QIODevice::ReadOnly))
        complain(QStringLiteral("This kernel does not report its memory pressure (%1: %2). The level stays normal; try "
                                "\"corvane-standin set memory critical\".")
                     .arg(m_source, file.errorString()));
    follow();
}

int MemoryPressure::levelOf(const QByteArray &pressure)
{
    if (stalled(pressure, "full") >= Threshold)
        return Levels::CriticalLevel;
    return stalled(pressure, "some") >= Threshold ? Levels::LowLevel : Levels::NormalLevel;
}

void MemoryPressure::read()
{
    QFile file(m_source);
    update(file.open(QIODevice::ReadOnly) ? levelOf(file.readAll()) : Levels::NormalLevel);
}

void MemoryPressure::update(int level)
{
    if (level == m_level)
        return;
    m_level = level;
    Q_EMIT levelChanged();
    QDBusMessage signal = QDBusMessage::createSignal(Names::MemoryPressure.path(), Names::Properties,
                                                     QStringLiteral("PropertiesChanged"));
    signal << QString::fromLatin1(Names::MemoryPressure.interface) << QVariantMap{{Corvane::Keys::Level, level}}
           << QStringList();
    QDBusConnection::sessionBus().send(signal);
}
