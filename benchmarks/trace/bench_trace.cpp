// SPDX-License-Identifier: BSD-3-Clause
// Measures the cost of the trace points of one operation while the logging category "corvane.trace" is off, compared
// with two branches on a variable.
#include <measure.h>

#include <Corvane/trace_p.h>

#include <QtCore/QCoreApplication>

namespace {

constexpr int Operations = 1000; // in one measurement

volatile bool isOn = false;
volatile int sizes = 0;

void trace()
{
    const QString name;
    for (int i = 0; i < Operations; ++i) {
        const auto trace = Corvane::Trace::begin("operation", name, [] {
            sizes = sizes + 1;
            return Corvane::Trace::Size();
        });
        trace.end("outcome");
    }
}

void branch()
{
    for (int i = 0; i < Operations; ++i) {
        if (isOn)
            sizes = sizes + 1;
        if (isOn)
            sizes = sizes + 1;
    }
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    Results results(QCoreApplication::arguments());
    measure(results, QStringLiteral("Trace points, category off"), QStringLiteral("one operation"),
            {{QStringLiteral("corvane"), trace, Operations}, {QStringLiteral("two branches"), branch, Operations}});
    results.write();
    return 0;
}
