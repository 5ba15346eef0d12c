// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QHash>
#include <QtCore/QRandomGenerator>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

/// The files that intents share. Each has other content.
class SharedFiles
{
public:
    explicit SharedFiles(quint32 seed);

    QString any(QRandomGenerator &random) const;
    /// Returns whether \a descriptor refers to the file \a name and is opened in the mode \a access (O_RDONLY or
    /// O_RDWR).
    bool isThat(int descriptor, const QString &name, int access) const;

private:
    QTemporaryDir m_directory;
    QStringList m_names;
    QHash<QString, QByteArray> m_contents;
};
