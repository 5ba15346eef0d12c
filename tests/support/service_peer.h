// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QHash>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QProcess>
#include <QtCore/QStringList>

/**
 * The service's side of the bus: tests/peer/service.py in a process of its own, which shares no code with the library.
 *
 * Values and bodies are in GLib's text form, "('OpenURI', {'count': <2.0>})". Each function waits for the peer and runs
 * the event loop meanwhile, so that the library can work. A peer that does not answer ends the test program.
 *
 * The bus and the peer's pipe have no order between them. Each function that returns what the peer has received asks
 * the peer first, through the pipe, and the peer answers after it has reported everything before. The results are
 * therefore complete: a call whose reply has arrived is always among calls().
 *
 * In each \a more, "descriptors" is the number of descriptors that the message carries, and "fill" the number of
 * letters that replace the word FILL in the body.
 */
class ServicePeer
{
public:
    /// Starts the peer. On return it owns the service's name.
    ServicePeer();
    ~ServicePeer();
    Q_DISABLE_COPY(ServicePeer)

    /// The calls since the last takeCalls(), all that the bus has passed on to the peer by now:
    /// "InvokeIntent (sa{sv}a{sv}) ('X', @a{sv} {}, ...)". The bus must not hang.
    QStringList calls();
    QStringList takeCalls();
    /// Returns "read: content" for each descriptor of the last call.
    QStringList descriptors();

    /// Sets the body of the replies to later calls, only of \a member if it is given.
    void answer(const QString &body, const QString &member = {}, const QJsonObject &more = {});
    void answerError(const QString &name, const QString &body = "('the reason',)", const QString &member = {});
    /// Replies to later intents with their own params.
    void echo();
    /// Keeps calls unanswered, until release() answers the one that came in at \a index. It waits for that call.
    void hold(bool on = true);
    void release(int index, const QString &body, const QJsonObject &more = {});
    void releaseError(int index, const QString &name);

    struct Reply
    {
        QString text; ///< "(a{sv}a{sv}) (...)", or "org.example.Error (s) ('reason',)"
        QStringList descriptors;
        QJsonObject counts; ///< how often each text came, where a call was made several times
    };
    /// Begins a call of a method of this process's handler object, and gives its number. The call has no time-out,
    /// unless \a more has a "timeout" in milliseconds.
    int beginCall(const QString &member, const QString &body, const QJsonObject &more = {});
    /// Returns whether the peer has received the reply. Works while the bus hangs.
    bool isFinished(int call);
    /// Waits for a call's reply.
    Reply finishCall(int call);
    /// Both: "HandleIntent" with the body, to the bus name of this process unless \a more says otherwise.
    Reply call(const QString &member, const QString &body, const QJsonObject &more = {});

    /// Notes signals from now on: those of the interface, whoever sends them, or else of another process that owns the
    /// service's name.
    void watchSignals(const QString &interface = {});
    /// The signals since the last time, all that the bus has passed on to the peer by now:
    /// "StateChanged (su) ('demo.instance1', 2)".
    QStringList takeSignals();

    /// Sends a signal of the object "name", a part of the service's. \a more may say "stranger", to send it from a
    /// connection that does not own the service's name, and a "destination". It has arrived here on return.
    void emitSignal(const QString &object, const QString &interface, const QString &member, const QString &body,
                    const QJsonObject &more = {});

    /// Returns whether the bus keeps a connection that sends the body.
    bool survivesSending(const QString &body);
    void ownServiceName(bool on);
    void claimName(const QString &name);
    bool hasOwner(const QString &name);

    /// Lets the functions wait without the event loop, so that this process handles no message meanwhile, like a
    /// process whose main thread is busy. Only for functions that need no reply of this process.
    void setEventLoopBlocked(bool on) { m_isEventLoopBlocked = on; }

    /// Waits until this process has read everything that the peer has sent, also while the event loop is blocked.
    void waitUntilRead();

    /// Kills the peer, and starts it again.
    void kill();
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
