// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QStringList>

/// The members of an interface in introspection data: "method Ask(in s name, out a{sv} reply)".
QStringList membersOf(const QString &interface, const QString &xml);

/// The introspection data in the text of a reply to "Introspect".
QString introspectionIn(const QString &reply);

/// The members that the installed file of an interface has.
QStringList documentedMembersOf(const QString &interface);
