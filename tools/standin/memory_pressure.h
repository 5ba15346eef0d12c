// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QObject>
#include <QtCore/QTimer>

/// The object "MemoryPressure1": it tells the kernel's memory pressure, or what was set in its place.
class MemoryPressure : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int Level READ level NOTIFY levelChanged)
public:
    /// \param source the kernel's pressure stall information for memory
    explicit MemoryPressure(const QString &source, QObject *parent = nullptr);

    int level() const { return m_level; }
    /// Says \a level from now on, whatever the kernel says.
    void setLevel(int level);
    /// Goes by the kernel again.
    void follow();

    /// Called by the adaptor. The kernel is asked once a second from then on.
    void Subscribe();

    /// The level that pressure stall information amounts to; "some avg10=0.00 avg60=0.00 ..." and "full ...".
    static int levelOf(const QByteArray &pressure);

Q_SIGNALS:
    void levelChanged();

private:
    void read();
    void update(int level);

    const QString m_source;
    QTimer m_timer;
    int m_level = 0;
    bool m_subscribed = false;
    bool m_isSet = false;
};
