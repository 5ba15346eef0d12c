// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>

#include <cstddef>

// The well-known bus name of the service; all other names are derived from it. It is a macro because Q_CLASSINFO
// accepts only literals. The CMake variable of the same name changes it; its default is here, so that the sources
// compile without any setting.
#ifndef CORVANE_SERVICE_ROOT
#define CORVANE_SERVICE_ROOT "org.halvir.Corvane"
#endif

/// The names of the service on the bus, each spelled once.
namespace Corvane::Names {

/// An interface and the path of its object, such as "a.b.Tasks1" and "/a/b/Tasks1".
template<std::size_t Size>
struct Endpoint
{
    constexpr explicit Endpoint(const char (&name)[Size])
    {
        pathText[0] = '/';
        for (std::size_t i = 0; i < Size; ++i) {
            interface[i] = name[i];
            pathText[i + 1] = name[i] == '.' ? '/' : name[i];
        }
    }

    constexpr QLatin1String path() const { return QLatin1String(pathText, int(Size)); }

    char interface[Size] = {};
    char pathText[Size + 1] = {};
};

inline constexpr QLatin1String ServiceRoot(CORVANE_SERVICE_ROOT, int(sizeof CORVANE_SERVICE_ROOT) - 1);
inline constexpr QLatin1String ErrorPrefix(CORVANE_SERVICE_ROOT ".Error.",
                                           int(sizeof CORVANE_SERVICE_ROOT ".Error.") - 1);
inline constexpr Endpoint Intents(CORVANE_SERVICE_ROOT ".Intents1");
inline constexpr Endpoint IntentHandler(CORVANE_SERVICE_ROOT ".IntentHandler1");
inline constexpr Endpoint Lifecycle(CORVANE_SERVICE_ROOT ".Lifecycle1");
inline constexpr Endpoint MemoryPressure(CORVANE_SERVICE_ROOT ".MemoryPressure1");
inline constexpr Endpoint Tasks(CORVANE_SERVICE_ROOT ".Tasks1");
inline constexpr Endpoint StandIn(CORVANE_SERVICE_ROOT ".StandIn1"); // of the development stand-in alone
inline const QString Properties = QStringLiteral("org.freedesktop.DBus.Properties"); // of every object
/// The text of the error of an application that has no handler for an intent.
inline const QString IntentNotRegistered = QStringLiteral("Intent not registered by specified application");

} // namespace Corvane::Names
