// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// \file
/// Makes requests awaitable in C++20. The library itself is built as C++17; this header is all that a coroutine needs.

#if __cplusplus < 202002L
#error "Corvane/coroutines.h needs C++20"
#endif

#include "intent_request.h"

#include <QtCore/QPointer>

#include <coroutine>
#include <memory>
#include <utility>

namespace Corvane {

/**
 * Waits for the result of a request: the type of `co_await *request`.
 *
 * \code
 * const QPointer<Window> self(this);
 * const QJsonObject params{{"type", "image"}};
 * const auto [state, reply, error] = co_await *m_invoker->request("PickFile", params);
 * if (!self || error)
 *     co_return;
 * \endcode
 *
 * The coroutine is resumed once, from the event loop: when the request finishes, or after the request is deleted, for
 * example with its invoker. In the second case the result is a canceled request, and other objects may be deleted too:
 * if the coroutine is a member of the object that owns the invoker, check that this object still exists, as above. The
 * coroutine is not suspended if the request has already finished. Several coroutines may wait for one request. A
 * suspended coroutine may be destroyed. It is not resumed if the event loop does not run again.
 *
 * Wait on the thread of the request. Any coroutine type can be used, for example QCoro::Task<>. Create the parameters
 * before the co_await expression: GCC 12 cannot compile a braced list inside it.
 */
class IntentRequestAwaiter
{
public:
    /// Waits for \a request. The expression `co_await *request` calls this constructor.
    explicit IntentRequestAwaiter(IntentRequest &request) : m_request(&request) { }
    Q_DISABLE_COPY_MOVE(IntentRequestAwaiter)
    ~IntentRequestAwaiter() = default;

    /// Returns true if the request has finished. The coroutine is not suspended then.
    bool await_ready() const { return m_request->isFinished(); }

    /// Resumes \a coroutine when the request has finished or was deleted.
    void await_suspend(std::coroutine_handle<> coroutine)
    {
        m_coroutine = coroutine;
        m_receiver = std::make_unique<QObject>();
        QObject::connect(m_request, &IntentRequest::finished, m_receiver.get(), [this] { resume(); });
        // Not at once: the coroutine might use the request or the invoker, whose destructors have not returned.
        QObject::connect(
            m_request, &QObject::destroyed, m_receiver.get(), [this] { resume(); }, Qt::QueuedConnection);
    }

    /// Returns the result of the request: the value of the expression `co_await *request`.
    IntentRequest::Result await_resume() const
    {
        if (m_request)
            return m_request->result();
        return {IntentRequest::Canceled, {}, {Error::Failed, QStringLiteral("The request was deleted")}};
    }

private:
    void resume()
    {
        if (const auto coroutine = std::exchange(m_coroutine, {}))
            coroutine.resume(); // may destroy this object
    }

    const QPointer<IntentRequest> m_request;
    std::unique_ptr<QObject> m_receiver; // disconnects when the coroutine is resumed or destroyed
    std::coroutine_handle<> m_coroutine;
};

/// Allows `co_await *request`. See IntentRequestAwaiter.
inline IntentRequestAwaiter operator co_await(IntentRequest &request)
{
    return IntentRequestAwaiter(request);
}

} // namespace Corvane
