// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// The stand-in's own exit codes, after sysexits.h and the shell; else it has its command's.
namespace ExitCode {

enum : int {
    Usage = 64,
    Manifest = 65,
    Bus = 69,
    CannotStart = 127,
    Signal = 128, ///< and the signal's number
};

} // namespace ExitCode
