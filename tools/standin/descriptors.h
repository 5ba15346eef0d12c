// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QVariant>

/// Whether a value from the bus contains a file descriptor at any depth. Such a value cannot be forwarded: QtDBus loses
/// descriptors when it copies values between messages, and libdbus aborts if one is missing.
bool holdsDescriptors(const QVariant &value);
