// SPDX-License-Identifier: BSD-3-Clause
#include "measure.h"

#include <valgrind/callgrind.h>

#include <algorithm>
#include <chrono>

namespace {

const qint64 BatchTime = 1000000; // nanoseconds
const qint64 FewestRounds = 5;

qint64 now(const Variant &variant)
{
    return variant.clock ? variant.clock()
                         : std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

qint64 timed(const Variant &variant, qint64 times)
{
    const qint64 start = now(variant);
    for (qint64 i = 0; i < times; ++i)
        variant.run();
    return now(variant) - start;
}

/// Returns the number of runs for one sample.
qint64 batchSize(const Variant &variant)
{
    qint64 times = 1;
    for (;;) {
        const qint64 elapsed = timed(variant, times);
        if (elapsed >= BatchTime / 2)
            return std::max(qint64(1), times * BatchTime / elapsed);
        times *= 4;
    }
}

void count(const QString &topic, const QString &caseName, const std::vector<Variant> &variants)
{
    for (const Variant &variant : variants) {
        variant.run(); // one-time work is not counted
        CALLGRIND_START_INSTRUMENTATION;
        CALLGRIND_ZERO_STATS;
        variant.run();
        CALLGRIND_DUMP_STATS_AT(
            qPrintable(QStringLiteral("%1|%2|%3|%4").arg(topic, caseName, variant.name).arg(variant.parts)));
        CALLGRIND_STOP_INSTRUMENTATION;
    }
}

} // namespace

void measure(Results &results, const QString &topic, const QString &caseName, const std::vector<Variant> &variants)
{
    if (RUNNING_ON_VALGRIND > 0) {
        count(topic, caseName, variants);
        return;
    }
    std::vector<qint64> batches;
    qint64 roundTime = 1;
    for (const Variant &variant : variants) {
        batches.push_back(batchSize(variant));
        roundTime += timed(variant, batches.back());
    }
    const auto rounds = std::clamp<qint64>(results.longest() / roundTime, FewestRounds, results.rounds());
    std::vector<QVector<double>> samples(variants.size());
    for (qint64 round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < variants.size(); ++i) {
            const size_t turn = (i + size_t(round)) % variants.size();
            const Variant &variant = variants[turn];
            const qint64 batch = batches[turn];
            samples[turn].append(double(timed(variant, batch)) / double(batch * variant.parts));
        }
    }
    for (size_t i = 0; i < variants.size(); ++i)
        results.add(topic, caseName, variants[i].name, QStringLiteral("ns"), samples[i]);
}
