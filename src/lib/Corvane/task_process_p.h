// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "task_process.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QPointer>
#include <QtCore/QTimer>

namespace Corvane {

class TaskProcessPrivate
{
public:
    explicit TaskProcessPrivate(TaskProcess *q);
    ~TaskProcessPrivate();
    Q_DISABLE_COPY(TaskProcessPrivate)

    void finish(int code);

    static inline std::chrono::milliseconds maximumFinishTime = TaskProcess::MaximumFinishTime; ///< tests change it

    const QString taskId;
    QPointer<TaskMessaging> messaging;
    bool isStopRequested = false;
    TaskProcess *const q;

private:
    void openChannel();
    void handleTermination();
    void onTermination();
    void continueFinish();

    bool isFinishing = false;
    bool isClosed = false; // finish() has closed the channel
    int exitCode = 0;
    QTimer finishTimer;
    QDeadlineTimer finishDeadline{QDeadlineTimer::Forever};
};

} // namespace Corvane
