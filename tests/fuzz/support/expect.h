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

/// Ends the process if the values differ, and prints both. \a what names the compared value.
template<typename Actual, typename Expected>
void expectEqual(const char *what, const Actual &actual, const Expected &expected)
{
    if (actual == expected)
        return;
    QString text;
    QDebug(&text).noquote() << what << "\n  expected:" << expected << "\n  actual:  " << actual;
    fail(text);
}

/// Returns the warnings since the last call. From the first call on, warnings are collected instead of printed.
QStringList takeWarnings();

/// Ends the process unless exactly these warnings, in any order, were logged since the last call of takeWarnings().
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

/// Returns a temporary directory, in /dev/shm if possible. It is removed at the end of the process.
QString temporaryDirectory();

QString toText(const QJsonObject &object);

} // namespace Fuzz
