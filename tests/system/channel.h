// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Corvane/task_messaging.h>

#include <json.h>

#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <memory>

/// A channel of the library that records its messages and states.
class Channel
{
public:
    template<typename Place>
    explicit Channel(Place place) : channel(new Corvane::TaskMessaging(place))
    {
        QObject::connect(channel.get(), &Corvane::TaskMessaging::messageReceived, channel.get(),
                         [this](const QJsonObject &message) { messages << toJson(message); });
        QObject::connect(channel.get(), &Corvane::TaskMessaging::stateChanged, channel.get(),
                         [this](Corvane::TaskMessaging::State state) { states << int(state); });
    }
    Q_DISABLE_COPY(Channel)

    Corvane::TaskMessaging *operator->() const { return channel.get(); }

    std::unique_ptr<Corvane::TaskMessaging> channel;
    QStringList messages;
    QVector<int> states;
};
