// SPDX-License-Identifier: BSD-3-Clause
#include "error.h"
#include "error_p.h"

#include <DBus/names.h>

#include <QtCore/QMap>
#include <QtDBus/QDBusError>

namespace Corvane {

Error::Error(Code code, const QString &message) : m_code(code), m_message(message) { }

Error::Code Error::code() const
{
    return m_code;
}

QString Error::message() const
{
    return m_message;
}

bool Error::isError() const
{
    return m_code != NoError;
}

Error::operator bool() const
{
    return isError();
}

Error errorFromDBusError(const QDBusError &error)
{
    static const QString standardPrefix = QStringLiteral("org.freedesktop.DBus.Error.");
    static const QMap<QString, Error::Code> standardCodes{
        {QStringLiteral("Failed"), Error::Failed},
        {QStringLiteral("InvalidArgs"), Error::InvalidArgs},
        {QStringLiteral("NotSupported"), Error::NotSupported},
        {QStringLiteral("AccessDenied"), Error::AccessDenied},
    };
    static const QString servicePrefix = Names::ErrorPrefix;
    static const QMap<QString, Error::Code> serviceCodes{
        {QStringLiteral("NoError"), Error::NoError},
        {QStringLiteral("HandlerNotFound"), Error::HandlerNotFound},
        {QStringLiteral("HandlerFailed"), Error::HandlerFailed},
        {QStringLiteral("ProcessNotHandled"), Error::ProcessNotHandled},
        {QStringLiteral("ApplicationNotRunning"), Error::ApplicationNotRunning},
        {QStringLiteral("ApplicationAlreadyRunning"), Error::ApplicationAlreadyRunning},
        {QStringLiteral("ApplicationAlreadyLaunching"), Error::ApplicationAlreadyLaunching},
    };

    QString name = error.name();
    if (!error.isValid() || name.isEmpty())
        return {};

    Error::Code code = Error::Failed;
    if (name.startsWith(servicePrefix))
        code = serviceCodes.value(name.remove(servicePrefix), Error::Failed);
    else if (name.startsWith(standardPrefix))
        code = standardCodes.value(name.remove(standardPrefix), Error::Failed);
    return {code, error.message()};
}

} // namespace Corvane
