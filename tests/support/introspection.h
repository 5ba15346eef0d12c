// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QStringList>

/// Returns the members of an interface in introspection data: "method Ask(in s name, out a{sv} reply)".
QStringList membersOf(const QString &interface, const QString &xml);

/// Returns the introspection data in the text of a reply to "Introspect".
QString introspectionIn(const QString &reply);

/// Returns the members in the installed XML file of an interface.
QStringList documentedMembersOf(const QString &interface);
