// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QtGlobal>

#include <sys/fsuid.h>
#include <sys/prctl.h>
#include <unistd.h>

constexpr uid_t Nobody = 65534;

/// Gives root only the file permissions of the user nobody until the destructor runs. Does nothing for other users.
class OrdinaryUser
{
public:
    OrdinaryUser()
    {
        if (::geteuid() != 0)
            return;
        ::setfsgid(Nobody);
        ::setfsuid(Nobody);
        if (::setfsuid(Nobody) != int(Nobody))
            qFatal("Cannot give up the rights of root");
    }
    ~OrdinaryUser()
    {
        if (::geteuid() != 0)
            return;
        ::setfsuid(0);
        ::setfsgid(0);
        ::prctl(PR_SET_DUMPABLE, 1); // the leak detector traces the process
    }
    Q_DISABLE_COPY(OrdinaryUser)
};
