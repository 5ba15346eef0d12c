// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "lifecycle.h"

namespace Corvane {

class LifecyclePrivate : public QObject
{
    Q_OBJECT
public:
    explicit LifecyclePrivate(Lifecycle *q);

    Error startService();
    Error stopService();

    Lifecycle *const q;

public Q_SLOTS:
    void onStateChanged(const QString &appInstanceId, const quint32 &state);
};

} // namespace Corvane
