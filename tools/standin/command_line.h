// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <variant>

/// What "corvane-standin run" is to do.
struct RunOptions
{
    QStringList manifests;
    QString applicationId;
    int startTimeout = 10000; // milliseconds
    QString busProgram;
    bool verbose = false;
    QStringList command;
};

/// What the other commands ask of a stand-in that runs: a call of its control object.
struct ControlRequest
{
    QString member;
    QVariantList arguments;
};

/// Reads the command line. Where there is nothing to do, as with --help or after a mistake, it says why and exits.
std::variant<RunOptions, ControlRequest> readCommandLine(const QStringList &arguments);
