// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>

/// The keys of the maps in messages.
namespace Corvane::Keys {

// The properties of a task
inline const QString Autostart = QStringLiteral("Autostart");
inline const QString CreateIpcSocket = QStringLiteral("CreateIPCSocket");
inline const QString Interval = QStringLiteral("Interval");
inline const QString Priority = QStringLiteral("Priority");
inline const QString RunningTime = QStringLiteral("RunningTime");
inline const QString Schedule = QStringLiteral("Schedule");
inline const QString StartDelay = QStringLiteral("StartDelay");
inline const QString StartTime = QStringLiteral("StartTime");

// The schedule of a task
inline const QString StartDate = QStringLiteral("StartDate");
inline const QString EndDate = QStringLiteral("EndDate");
inline const QString Months = QStringLiteral("Months");
inline const QString WeekDays = QStringLiteral("WeekDays");
inline const QString Hours = QStringLiteral("Hours");
inline const QString Minutes = QStringLiteral("Minutes");

// The states of all tasks
inline const QString State = QStringLiteral("State");

// The properties of the memory pressure
inline const QString Level = QStringLiteral("Level");

// The files of an intent or of a reply
inline const QString ReadFiles = QStringLiteral("readFiles");
inline const QString WriteFiles = QStringLiteral("writeFiles");
inline const QString ReadFds = QStringLiteral("readFds");
inline const QString WriteFds = QStringLiteral("writeFds");

} // namespace Corvane::Keys
