// SPDX-License-Identifier: BSD-3-Clause
#include "labelled_output.h"

#include <QtCore/QSet>
#include <QtCore/QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

const int LongestLine = 64 * 1024;

QSet<LabelledOutput *> &all()
{
    static QSet<LabelledOutput *> outputs;
    return outputs;
}

void writeAll(int descriptor, const QByteArray &text)
{
    const char *begin = text.constData();
    const char *const end = begin + text.size();
    while (begin < end) {
        const ssize_t written = ::write(descriptor, begin, size_t(end - begin));
        if (written > 0) {
            begin += written;
        } else if (errno == EAGAIN) {
            pollfd waiting{descriptor, POLLOUT, 0};
            ::poll(&waiting, 1, -1);
        } else if (errno != EINTR) {
            return; // nobody reads the output any more
        }
    }
}

} // namespace

LabelledOutput::LabelledOutput(const QString &label, int target) : m_label(label.toLocal8Bit() + ": "), m_target(target)
{
    ::signal(SIGPIPE, SIG_IGN); // QProcess resets it in its children
    std::array<int, 2> ends{-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) == 0) {
        m_readEnd = ends[0];
        m_writeEnd = ends[1];
        ::fcntl(m_readEnd, F_SETFL, O_NONBLOCK);
        auto *notifier = new QSocketNotifier(m_readEnd, QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, [this, notifier] {
            if (!read()) {
                notifier->setEnabled(false);
                deleteLater();
            }
        });
    }
    all().insert(this);
}

LabelledOutput::~LabelledOutput()
{
    all().remove(this);
    if (!m_line.isEmpty())
        writeLine(m_line);
    closeWriteEnd();
    if (m_readEnd >= 0)
        ::close(m_readEnd);
}

void LabelledOutput::closeWriteEnd()
{
    if (m_writeEnd >= 0)
        ::close(m_writeEnd);
    m_writeEnd = -1;
}

void LabelledOutput::flushAll()
{
    for (LabelledOutput *output : qAsConst(all()))
        output->read();
}

void LabelledOutput::finishAll()
{
    flushAll();
    const QSet<LabelledOutput *> outputs = all();
    qDeleteAll(outputs);
}

/// Returns false at the end of the output.
bool LabelledOutput::read()
{
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t size = ::read(m_readEnd, buffer.data(), buffer.size());
        if (size <= 0)
            return size < 0 && (errno == EAGAIN || errno == EINTR);
        m_line.append(buffer.data(), int(size));
        int begin = 0;
        for (int end = m_line.indexOf('\n'); end >= 0; end = m_line.indexOf('\n', begin)) {
            writeLine(m_line.mid(begin, end - begin));
            begin = end + 1;
        }
        m_line.remove(0, begin);
        if (m_line.size() > LongestLine) {
            writeLine(m_line.left(LongestLine));
            m_line.remove(0, LongestLine);
        }
    }
}

void LabelledOutput::writeLine(const QByteArray &line) const
{
    int begin = 0;
    do {
        writeAll(m_target, m_label + line.mid(begin, LongestLine) + '\n');
        begin += LongestLine;
    } while (begin < line.size());
}
