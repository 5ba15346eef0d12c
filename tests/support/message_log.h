// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QStringList>

/// Collects the warnings that are logged during its lifetime. A warning that was not taken fails the test.
class MessageLog
{
public:
    MessageLog();
    ~MessageLog();
    Q_DISABLE_COPY(MessageLog)

    /// Returns the warnings since the last call, each as it would be printed.
    QStringList takeWarnings();
    /// Returns the function that logged the last warning.
    QString lastFunction() const { return m_lastFunction; }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text);

    QStringList m_warnings;
    QString m_lastFunction;
    QtMessageHandler m_previousHandler;
};
