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
    // Debian's Qt has no frame pointers, so that longer stacks of an allocation are mostly guesses, and cost time.
    // What is freed waits in the thread's own quarantine alone, which stays in the cache of the processor: a larger one
    // takes half of all time. It holds about what an input frees.
    // max_allocation_size_mb stands for libFuzzer's malloc_limit_mb, which needs its leak detection.
    return "malloc_context_size=2:quarantine_size_mb=0:thread_local_quarantine_size_kb=256:max_allocation_size_mb=4096";
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    // libFuzzer's own leak detection counts all allocations, runs an input twice where the counts differ, and gives up
    // after a thousand such inputs. Arguments of the command line follow, and override these.
    static char withoutLeakChecks[] = "-detect_leaks=0";
    // What takes long is changed less often, in favour of what does not; it has its turn, too.
    static char quickOnesFirst[] = "-entropic_scale_per_exec_time=1";
    // To name a new function it starts a program, to which it keeps pipes open, and descriptors are counted.
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
