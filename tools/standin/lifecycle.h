// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "applications.h"

/// The object "Lifecycle1": it announces the states of the applications that the stand-in starts.
class Lifecycle : public QObject
{
    Q_OBJECT
public:
    explicit Lifecycle(const Applications &applications, QObject *parent = nullptr);

Q_SIGNALS:
    void StateChanged(const QString &appInstanceId, uint state); ///< The adaptor sends it on the bus.
};
