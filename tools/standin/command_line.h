// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <variant>

/// The options of "corvane-standin run".
struct RunOptions
{
    QStringList manifests;
    QString applicationId;
    int startTimeout = 10000; // milliseconds
    QString busProgram;
    bool verbose = false;
    QStringList command;
};

/// The call that another command sends to the control object of a running stand-in.
struct ControlRequest
{
    QString member;
    QVariantList arguments;
};

/// Parses the command line. After --help, --version or an error, it prints a text and exits.
std::variant<RunOptions, ControlRequest> readCommandLine(const QStringList &arguments);
