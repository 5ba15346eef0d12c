// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QStringList>

/// What the command line asks for.
struct Options
{
    QStringList manifests;
    QString applicationId;
    int startTimeout = 10000;
    bool verbose = false;
    QStringList command;
};

/// Reads the command line. Where there is nothing to run, as with --help or after a mistake, it says why and exits.
Options readOptions(const QStringList &arguments);
