// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QVariant>

/// Whether there is a descriptor anywhere in a value that came from the bus. Such a value cannot be passed on: QtDBus
/// loses descriptors when it copies values between messages, and libdbus aborts where one is missing.
bool holdsDescriptors(const QVariant &value);
