// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// The output of --help.
extern const char Help[];
