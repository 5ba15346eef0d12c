// SPDX-License-Identifier: BSD-3-Clause
#pragma once

struct Invocation;

// The functions of the table, one per command. Each returns the exit code.
int invokeIntent(const Invocation &invocation);
int handleIntent(const Invocation &invocation);
int encodeUri(const Invocation &invocation);
int decodeUri(const Invocation &invocation);
int startTask(const Invocation &invocation);
int stopTask(const Invocation &invocation);
int showTask(const Invocation &invocation);
int watchTask(const Invocation &invocation);
int watchLifecycle(const Invocation &invocation);
int watchMemory(const Invocation &invocation);
int checkParams(const Invocation &invocation);
int showService(const Invocation &invocation);
