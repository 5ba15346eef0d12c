// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QDebug>
#include <QtCore/QJsonObject>
#include <QtCore/QStringList>
#include <QtCore/QVector>

/// The checks of the fuzzing targets.
namespace Fuzz {

/// Ends the process with a text.
[[noreturn]] void fail(const QString &text);

/// Ends the process unless the two are equal, with a text that says what was expected.
template<typename Actual, typename Expected>
void expectEqual(const char *what, const Actual &actual, const Expected &expected)
{
    if (actual == expected)
        return;
    QString text;
    QDebug(&text).noquote() << what << "\n  expected:" << expected << "\n  actual:  " << actual;
    fail(text);
}

/// The warnings since the last call. From the first call on messages are collected instead of printed.
QStringList takeWarnings();

/// Ends the process unless these warnings, in any order, were logged since the last time.
void expectWarnings(QStringList expected);

struct OpenDescriptor
{
    int number;
    quint64 device;
    quint64 inode;
};

bool operator==(const OpenDescriptor &a, const OpenDescriptor &b);
QDebug operator<<(QDebug debug, const OpenDescriptor &descriptor);

constexpr int MaxDescriptorsAsked = 512;

/// Returns the open descriptors with numbers below \a end.
QVector<OpenDescriptor> openDescriptors(int end = MaxDescriptorsAsked);

/// A directory of this process, gone at its end; in memory if the system has a place for that.
QString temporaryDirectory();

QString toText(const QJsonObject &object);

} // namespace Fuzz
