# SPDX-License-Identifier: BSD-3-Clause
# complete.zsh DIRECTORY LINE: prints the line after the Tab key is pressed at its end in an interactive zsh.
zmodload zsh/zpty
zpty shell "PS1= PS2= zsh -f -i"
zpty -w shell "fpath=($1 \$fpath); autoload -Uz compinit; compinit -D -u; unsetopt beep auto_list prompt_sp
show-line() { print -r -- \"<LINE>\$BUFFER</LINE>\"; zle kill-whole-line }
zle -N show-line; bindkey '^X' show-line; print READY"
output=
while [[ $output != *$'READY\r\n'* ]]; do
    zpty -r shell part && output+=$part
done
zpty -w -n shell "$2"$'\t\x18'
output=
while [[ $output != *'</LINE>'* ]]; do
    zpty -r shell part && output+=$part
done
output=${output##*'<LINE>'}
print -r -- "${output%%'</LINE>'*}"
zpty -d shell
