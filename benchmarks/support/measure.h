// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "results.h"

#include <functional>
#include <vector>

/// One way to do the work that is compared.
struct Variant
{
    QString name;
    std::function<void()> run;
    int parts = 1; ///< Of which the work consists; the time of one is told.
    std::function<qint64()> clock = {}; ///< What counts, in nanoseconds; wall clock if empty.
};

/**
 * Measures the variants of one case, interleaved: in every round each of them runs once, in turn, as often as takes
 * about a millisecond. So what disturbs the machine disturbs all of them, and the medians can be compared.
 *
 * Adds a row of nanoseconds for each variant to the results. Under callgrind, and only there, each runs once
 * instead, and the instructions are dumped under the names of topic, case and variant, and the number of parts.
 */
void measure(Results &results, const QString &topic, const QString &caseName, const std::vector<Variant> &variants);
