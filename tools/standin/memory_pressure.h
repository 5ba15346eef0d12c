// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QObject>
#include <QtCore/QTimer>

/// The object "MemoryPressure1": it reports the memory pressure of the kernel, or a level that was set instead.
class MemoryPressure : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int Level READ level NOTIFY levelChanged)
public:
    /// \param source the file with the kernel's pressure stall information for memory
    explicit MemoryPressure(const QString &source, QObject *parent = nullptr);

    int level() const { return m_level; }
    /// Reports \a level until follow() is called.
    void setLevel(int level);
    /// Reports the level of the kernel again.
    void follow();

    /// Called by the adaptor. Starts to read the source once per second.
    void Subscribe();

    /// Returns the level for pressure stall information: "some avg10=0.00 avg60=0.00 ..." and "full ...".
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
