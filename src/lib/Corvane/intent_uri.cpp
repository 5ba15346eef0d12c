// SPDX-License-Identifier: BSD-3-Clause
#include "intent_uri.h"

#include <Core/intent_uri.h>
#include <DBus/keys.h>

#include <QtCore/QDebug>

namespace Corvane {

namespace {

using Core::IntentUri::Intent;
using Core::IntentUri::ValueFault;

const QString EmptyName = QStringLiteral("The intent name is empty");

/// Returns the fault of a URI as a sentence; an empty text if there is none.
QString problemOf(const Intent &intent, const QUrl &uri)
{
    switch (intent.fault) {
    case Intent::Fault::InvalidUrl:
        return uri.isEmpty() ? QStringLiteral("The URI is empty") : uri.errorString();
    case Intent::Fault::WrongScheme:
        return QStringLiteral("The scheme is not \"intent\"");
    case Intent::Fault::WrongFragment:
        return QStringLiteral("The fragment does not have the form \"Intent;name=NAME;KEY=TYPE.VALUE;end\"");
    case Intent::Fault::InvalidParam:
        return QStringLiteral("The parameter \"%1\" does not have the form \"KEY=TYPE.VALUE\"")
            .arg(intent.invalidParam);
    case Intent::Fault::None:
        break;
    }
    return intent.name.isEmpty() ? EmptyName : QString();
}

/// Returns the end of a sentence about the value; an empty text if it can be written.
QString problemOf(const QJsonValue &value)
{
    switch (Core::IntentUri::faultOf(value)) {
    case ValueFault::Semicolon:
        return QStringLiteral("contains a semicolon");
    case ValueFault::Container:
        return QStringLiteral("is an array or an object");
    case ValueFault::Null:
        return QStringLiteral("is null");
    case ValueFault::None:
        break;
    }
    return {};
}

Error invalid(const QString &message)
{
    return {Error::InvalidArgs, message};
}

/// \param sentence names a member, and has a place for its key and one for its problem
Error firstInvalidMember(const QJsonObject &object, const QString &sentence)
{
    for (auto member = object.begin(); member != object.end(); ++member) {
        const QString problem = problemOf(member.value());
        if (!problem.isEmpty())
            return invalid(sentence.arg(member.key(), problem));
    }
    return {};
}

Error firstChangedMember(const QJsonObject &object, const QJsonObject &read, const QString &sentence)
{
    for (auto member = object.begin(); member != object.end(); ++member) {
        if (read.value(member.key()) != member.value())
            return invalid(sentence.arg(member.key(), QStringLiteral("does not read back unchanged")));
    }
    return {};
}

} // namespace

IntentUri::IntentUri() : IntentUri(QUrl()) { }

IntentUri::IntentUri(const QUrl &uri, FileHints fileHints)
{
    const Intent intent = Core::IntentUri::read(uri);
    const QString problem = problemOf(intent, uri);
    if (!problem.isEmpty()) {
        m_error = invalid(problem);
        return;
    }
    m_intentName = intent.name;
    m_hints = intent.hints;
    m_params = intent.params;
    if (fileHints != KeepFileHints) {
        m_hints.remove(Keys::ReadFiles);
        m_hints.remove(Keys::WriteFiles);
    }
}

Error IntentUri::check(const QString &intentName, const QJsonObject &hints, const QJsonObject &params)
{
    const QString hintSentence = QStringLiteral("The hint \"%1\" %2");
    const QString paramSentence = QStringLiteral("The parameter \"%1\" %2");

    if (intentName.isEmpty())
        return invalid(EmptyName);
    if (const Error error = firstInvalidMember(hints, hintSentence))
        return error;
    if (const Error error = firstInvalidMember(params, paramSentence))
        return error;

    const QUrl uri = Core::IntentUri::toUri(intentName, hints, params);
    const IntentUri read(QUrl::fromEncoded(uri.toEncoded()), KeepFileHints);
    if (read.error())
        return invalid(QStringLiteral("The intent cannot be read back: %1").arg(read.error().message()));
    if (read.intentName() != intentName)
        return invalid(QStringLiteral("The intent name does not read back unchanged"));
    if (const Error error = firstChangedMember(hints, read.hints(), hintSentence))
        return error;
    return firstChangedMember(params, read.params(), paramSentence);
}

QDebug operator<<(QDebug debug, const IntentUri &intent)
{
    const QDebugStateSaver saver(debug);
    debug.nospace() << "Corvane::IntentUri(";
    if (intent.m_error)
        debug << intent.m_error;
    else
        debug << intent.m_intentName << ", " << intent.m_hints << ", " << intent.m_params;
    debug << ')';
    return debug;
}

} // namespace Corvane
