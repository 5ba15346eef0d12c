// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QStringList>

/// Collects the warnings of its lifetime. The test fails if takeWarnings() has not returned all of them.
class MessageLog
{
public:
    MessageLog();
    ~MessageLog();
    Q_DISABLE_COPY(MessageLog)

    /// Returns the warnings since the last call.
    QStringList takeWarnings();
    /// Returns the function that logged the last warning.
    QString lastFunction() const { return m_lastFunction; }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text);

    QStringList m_warnings;
    QString m_lastFunction;
    QtMessageHandler m_previousHandler;
};
