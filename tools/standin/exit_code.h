// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// The exit codes of the stand-in, as in sysexits.h and in a shell. Otherwise it returns that of its command.
namespace ExitCode {

enum : int {
    Usage = 64,
    Manifest = 65,
    Bus = 69,
    CannotStart = 127,
    Signal = 128, ///< plus the number of the signal
};

} // namespace ExitCode
