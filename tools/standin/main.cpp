// SPDX-License-Identifier: BSD-3-Clause
#include "run.h"

#include <QtCore/QCoreApplication>

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    return run(readOptions(QCoreApplication::arguments()));
}
