// SPDX-License-Identifier: BSD-3-Clause
#include "lifecycle.h"

Lifecycle::Lifecycle(const Applications &applications, QObject *parent) : QObject(parent)
{
    connect(&applications, &Applications::stateChanged, this, &Lifecycle::StateChanged);
}
