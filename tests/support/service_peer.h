// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QHash>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QProcess>
#include <QtCore/QStringList>

/**
 * Runs and controls the peer: tests/peer/service.py, which is the service side of the bus. The peer is a separate
 * process and shares no code with the library.
 *
 * Values and bodies are in GLib's text form, such as "('OpenURI', {'count': <2.0>})". Each function waits for the peer
 * and runs the event loop meanwhile. The test program ends if the peer does not reply.
 *
 * There is no order between the bus and the pipe of the peer. Therefore each function that returns received messages
 * makes a round trip through the pipe first; the peer reports all earlier messages before it replies. The results are
 * complete: calls() contains every call whose reply has arrived.
 *
 * In each \a more, "descriptors" is the number of file descriptors in the message, and "fill" the number of letters
 * that replace the word FILL in the body.
 */
class ServicePeer
{
public:
    /// Starts the peer, and waits until it owns the service's name.
    ServicePeer();
    ~ServicePeer();
    Q_DISABLE_COPY(ServicePeer)

    /// Returns all calls that the bus has delivered to the peer since the last takeCalls(), such as
    /// "InvokeIntent (sa{sv}a{sv}) ('X', @a{sv} {}, ...)". Do not call this function while the bus hangs.
    QStringList calls();
    QStringList takeCalls();
    /// Returns "read: content" for each descriptor of the last call.
    QStringList descriptors();

    /// Sets the body of the replies to later calls of \a member, or of all members.
    void answer(const QString &body, const QString &member = {}, const QJsonObject &more = {});
    void answerError(const QString &name, const QString &body = "('the reason',)", const QString &member = {});
    /// Replies to later intents with their own params.
    void echo();
    /// Delays the replies to later calls. release() waits for the call with the number \a index, and replies to it. The
    /// numbers start at 0 after each hold().
    void hold(bool on = true);
    void release(int index, const QString &body, const QJsonObject &more = {});
    void releaseError(int index, const QString &name);

    struct Reply
    {
        QString text; ///< "(a{sv}a{sv}) (...)", or "org.example.Error (s) ('reason',)"
        QStringList descriptors;
        QJsonObject counts; ///< The number of replies with each text, for a repeated call.
    };
    /// Starts a call of a method of the handler object in this process, and returns the number of the call. The call
    /// has no time-out unless \a more contains a "timeout" in milliseconds.
    int beginCall(const QString &member, const QString &body, const QJsonObject &more = {});
    /// Returns whether the peer has received the reply. Works while the bus hangs.
    bool isFinished(int call);
    /// Waits for the reply to a call.
    Reply finishCall(int call);
    /// Starts a call and waits for its reply. The call goes to the bus name of this process unless \a more contains a
    /// "destination".
    Reply call(const QString &member, const QString &body, const QJsonObject &more = {});

    /// Records later signals: those of \a interface from any sender, or, without an interface, all signals of the
    /// process that owns the service's name.
    void watchSignals(const QString &interface = {});
    /// Returns all signals that the bus has delivered to the peer since the last call, such as
    /// "StateChanged (su) ('demo.instance1', 2)".
    QStringList takeSignals();

    /// Sends a signal of an object of the service, and waits until it has arrived in this process. \a object is the
    /// last part of the object path. \a more may contain "stranger", to send from a connection that does not own the
    /// service's name, and a "destination".
    void emitSignal(const QString &object, const QString &interface, const QString &member, const QString &body,
                    const QJsonObject &more = {});

    /// Sends the body on another connection, and returns whether the bus keeps that connection.
    bool survivesSending(const QString &body);
    void ownServiceName(bool on);
    void claimName(const QString &name);
    bool hasOwner(const QString &name);

    /// Makes the functions wait without running the event loop, like a process whose main thread is busy. Use it only
    /// for functions that need no reply of this process.
    void setEventLoopBlocked(bool on) { m_isEventLoopBlocked = on; }

    /// Waits until this process has read all messages of the peer, also while the event loop is blocked.
    void waitUntilRead();

    /// Kills the peer.
    void kill();
    /// Starts the peer again.
    void start();

    /// Returns after all earlier messages from the bus have arrived.
    bool busRoundTrip();
    /// Returns after all earlier messages between this process and the peer have arrived, in both directions.
    bool roundTrip();

private:
    int send(const QString &request, QJsonObject arguments = {});
    QJsonValue wait(int id);
    QJsonValue request(const QString &name, const QJsonObject &arguments = {});
    void flush(bool throughTheBus);
    void read();

    QProcess m_process;
    int m_lastId = 0;
    bool m_isEventLoopBlocked = false;
    QHash<int, QJsonValue> m_results;
    QStringList m_calls;
    QStringList m_descriptors;
    QStringList m_signals;
};
