// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QHash>
#include <QtCore/QRandomGenerator>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

/// Files to be shared, no two of the same content.
class SharedFiles
{
public:
    explicit SharedFiles(quint32 seed);

    QString any(QRandomGenerator &random) const;
    /// Whether a descriptor is that of the file \a name, opened in the mode \a access, O_RDONLY or O_RDWR.
    bool isThat(int descriptor, const QString &name, int access) const;

private:
    QTemporaryDir m_directory;
    QStringList m_names;
    QHash<QString, QByteArray> m_contents;
};
