// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <variant>

/// The options of "corvane-standin run".
struct RunOptions
{
    QStringList manifests;
    QString name; ///< empty for the default name
    QString defaultName; ///< after the command
    QString applicationId;
    int startTimeout = 10000; // milliseconds
    QString busProgram;
    bool verbose = false;
    bool watch = false;
    bool timestamps = false;
    bool raw = false;
    QStringList command;
};

/// The options of "corvane-standin exec" and "shell".
struct JoinOptions
{
    QString name; ///< that of the stand-in; empty for the only one
    QString applicationId; ///< empty for a process that is no application
    QStringList command;
};

/// The call that another command sends to the control object of a running stand-in. Its results are printed.
struct ControlRequest
{
    QString name; ///< that of the stand-in; empty for the only one
    QString member;
    QVariantList arguments;
};

/// The options of "corvane-standin status" and "list".
struct StatusOptions
{
    enum Format { Text, Json, Applications, Intents, Tasks };

    QString name; ///< that of the stand-in; empty for the only one
    Format format;
};

/// The options of "corvane-standin monitor".
struct MonitorOptions
{
    QString name; ///< that of the stand-in; empty for the only one
    bool timestamps;
};

using CommandLine = std::variant<RunOptions, JoinOptions, StatusOptions, MonitorOptions, ControlRequest>;

/// Parses the command line. After --help, --version or an error, it prints a text and exits.
CommandLine readCommandLine(const QStringList &arguments);
