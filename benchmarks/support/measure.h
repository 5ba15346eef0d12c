// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "results.h"

#include <functional>
#include <vector>

/// One variant of the work.
struct Variant
{
    QString name;
    std::function<void()> run;
    int parts = 1; ///< The number of parts of the work; the results are for one part.
    std::function<qint64()> clock = {}; ///< The measured clock, in nanoseconds; the wall clock if empty.
};

/**
 * Measures the variants of one case, interleaved. In every round, each variant runs for about a millisecond. A
 * disturbance of the machine therefore affects all variants, and the medians can be compared.
 *
 * Adds a row of nanoseconds for each variant to the results. Under callgrind, each variant runs once instead, and the
 * instructions are dumped under the names of topic, case and variant, and the number of parts.
 */
void measure(Results &results, const QString &topic, const QString &caseName, const std::vector<Variant> &variants);
