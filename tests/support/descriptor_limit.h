// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QtGlobal>

#include <sys/resource.h>
#include <unistd.h>

/// Lowers the limit of file descriptors. The process cannot open another one until the destructor runs.
class NoFreeDescriptor
{
public:
    NoFreeDescriptor()
    {
        const int firstFree = ::dup(0);
        ::close(firstFree);
        if (::getrlimit(RLIMIT_NOFILE, &m_before) != 0)
            qFatal("The limit of descriptors is not known");
        set({rlim_t(firstFree), m_before.rlim_max});
    }
    ~NoFreeDescriptor() { set(m_before); }
    Q_DISABLE_COPY(NoFreeDescriptor)

private:
    static void set(const rlimit &limit)
    {
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
            qFatal("The limit of descriptors cannot be set");
    }

    rlimit m_before = {};
};
