# SPDX-License-Identifier: BSD-3-Clause
# complete.bash FILE WORD...: prints the completions of the last word, one per line.
set -euo pipefail
source "$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
set +eu # as in an interactive shell
_corvane
printf '%s\n' "${COMPREPLY[@]}"
