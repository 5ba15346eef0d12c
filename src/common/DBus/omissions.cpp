// SPDX-License-Identifier: BSD-3-Clause
#include "omissions.h"

#include <QtCore/QDebug>

namespace Corvane {

void Omissions::addTooDeep(const Omission &omission)
{
    if (!m_isTooDeep)
        add(omission);
    m_isTooDeep = true;
}

void Omissions::log() const
{
    for (const Omission &omission : m_omissions)
        QMessageLogger(omission.file, 0, omission.function).warning().noquote() << omission.text;
}

} // namespace Corvane
