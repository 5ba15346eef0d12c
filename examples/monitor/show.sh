#!/bin/sh
# SPDX-License-Identifier: BSD-3-Clause
# Changes states and levels for the monitor. corvane-standin runs it, with the manifests of monitor and viewer.
set -e
show() { echo "\$ $*"; "$@"; sleep 1; }

show corvane-standin start monitor
show corvane-standin start viewer
show corvane-standin set memory low
show corvane-standin set memory critical
show corvane-standin set memory normal
show corvane-standin stop viewer
