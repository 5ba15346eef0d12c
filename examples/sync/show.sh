#!/bin/sh
# SPDX-License-Identifier: BSD-3-Clause
# Has the task's time come. To be run by corvane-standin, with the manifest of sync.
set -e
show() { echo "\$ $*"; "$@"; sleep 1; }

show corvane-standin start sync
show corvane-standin set clock +24h
sleep 2
