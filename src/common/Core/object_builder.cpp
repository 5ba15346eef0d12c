// SPDX-License-Identifier: BSD-3-Clause
#include "object_builder.h"

#include <algorithm>

namespace Core {

void ObjectBuilder::insert(const QString &key, const QJsonValue &value)
{
    constexpr int Few = 16;
    if (m_object.size() < Few) {
        m_object.insert(key, value);
        return;
    }
    if (m_lastKey.isNull())
        m_lastKey = (m_object.constEnd() - 1).key();
    if (m_rest.isEmpty() && m_lastKey < key) {
        m_object.insert(key, value);
        m_lastKey = key;
    } else {
        m_rest.append({key, value});
    }
}

QJsonObject ObjectBuilder::take()
{
    if (m_rest.isEmpty())
        return m_object;
    QVector<QPair<QString, QJsonValue>> members;
    members.reserve(m_object.size() + m_rest.size());
    for (auto member = m_object.constBegin(); member != m_object.constEnd(); ++member)
        members.append({member.key(), member.value()});
    members += m_rest;
    std::stable_sort(members.begin(), members.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    QJsonObject object;
    for (const auto &[key, value] : qAsConst(members))
        object.insert(key, value);
    return object;
}

} // namespace Core
