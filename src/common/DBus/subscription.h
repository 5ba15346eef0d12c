// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>

class QObject;

namespace Corvane {

/**
 * Connects a signal of the service to a slot, until the receiver is deleted. A failure is neither returned nor logged.
 *
 * \param path is the path of the service's object.
 * \param interface is one of the interfaces of this object, such as org.freedesktop.DBus.Properties.
 * \param signature is the signature of the delivered signals. Qt drops a signal with another signature before it
 *        demarshals the arguments; it would demarshal them as the slot's types otherwise.
 * \param slot is the result of SLOT().
 */
void subscribe(const QString &path, const QString &interface, const QString &member, const QString &signature,
               QObject *receiver, const char *slot);

} // namespace Corvane
