// SPDX-License-Identifier: BSD-3-Clause
// The common parts of all targets: the options of the sanitizers and of libFuzzer, and the leak check.
#include "target.h"

#include "expect.h"

#include <sanitizer/lsan_interface.h>

#include <vector>

namespace {

constexpr int InputsBetweenLeakChecks = 5000;

} // namespace

// NOLINTNEXTLINE(bugprone-reserved-identifier): AddressSanitizer calls it by this name
extern "C" const char *__asan_default_options()
{
    // malloc_context_size: Debian's Qt has no frame pointers, so longer stacks are mostly wrong, and slow.
    // Quarantine: freed memory is kept only in the quarantine of the thread, which fits the cache of the processor and
    // about the memory that one input frees. A larger quarantine would need half of all time.
    // max_allocation_size_mb replaces libFuzzer's malloc_limit_mb, which needs libFuzzer's leak detection.
    return "malloc_context_size=2:quarantine_size_mb=0:thread_local_quarantine_size_kb=256:max_allocation_size_mb=4096";
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    // libFuzzer's own leak detection counts all allocations, runs an input again if the counts differ, and stops after
    // a thousand such inputs. The arguments of the command line follow these options and override them.
    static char withoutLeakChecks[] = "-detect_leaks=0";
    // libFuzzer mutates slow inputs less often than fast ones.
    static char quickOnesFirst[] = "-entropic_scale_per_exec_time=1";
    // To print function names, libFuzzer starts a program and keeps pipes open; the targets count open descriptors.
    static char withoutFunctionNames[] = "-print_funcs=0";
    static std::vector<char *> arguments(*argv, *argv + *argc);
    arguments.insert(arguments.begin() + 1, {withoutLeakChecks, quickOnesFirst, withoutFunctionNames});
    arguments.push_back(nullptr);
    *argc = int(arguments.size()) - 1;
    *argv = arguments.data();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Fuzz::runInput(data, size);
    static int inputs = 0;
    if (++inputs % InputsBetweenLeakChecks == 0 && __lsan_do_recoverable_leak_check() != 0)
        Fuzz::fail(QString("One of the last %1 inputs leaks").arg(InputsBetweenLeakChecks));
    return 0;
}
