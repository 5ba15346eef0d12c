#!/bin/sh
# SPDX-License-Identifier: BSD-3-Clause
# Advances the clock to the time of the task. corvane-standin runs it, with the manifest of sync.
set -e
show() { echo "\$ $*"; "$@"; sleep 1; }

show corvane-standin start sync
show corvane-standin set clock +24h
sleep 2
