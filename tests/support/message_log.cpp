// SPDX-License-Identifier: BSD-3-Clause
#include "message_log.h"

#include <QtCore/QMutex>
#include <QtTest/QtTest>

namespace {

MessageLog *current = nullptr;

QMutex &mutex() // threads log too
{
    static QMutex mutex;
    return mutex;
}

} // namespace

MessageLog::MessageLog() : m_previousHandler(qInstallMessageHandler(&MessageLog::handle))
{
    current = this;
}

MessageLog::~MessageLog()
{
    qInstallMessageHandler(m_previousHandler);
    current = nullptr;
    if (!m_warnings.isEmpty()) {
        const QString text = "Unexpected warnings: " + m_warnings.join("; ");
        QTest::qFail(qUtf8Printable(text), __FILE__, __LINE__);
    }
}

QStringList MessageLog::takeWarnings()
{
    const QMutexLocker locker(&mutex());
    QStringList warnings;
    warnings.swap(m_warnings);
    return warnings;
}

void MessageLog::handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtWarningMsg) {
        const QMutexLocker locker(&mutex());
        current->m_warnings.append(text);
        current->m_lastFunction = QString::fromUtf8(context.function);
    } else if (current->m_previousHandler) {
        current->m_previousHandler(type, context, text);
    }
}
