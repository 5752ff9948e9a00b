#!/usr/bin/env bash
# The generated bash completion against the programs themselves: it offers every command fiva-cli
# lists, each of those answers --help, and every option offered for a command is one its usage names.
# The zsh completions must at least parse.
# usage: check-completion.sh FIVA_CLI SHELL_DOCS_DIR [FIVA]
set -uo pipefail
cli=$1 docs=$2 app=${3:-}
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# What the completion offers for the words before the cursor, the last word being completed.
offered() {
    local program=$1; shift
    COMP_WORDS=("$program" "$@")
    COMP_CWORD=$(($# ))
    COMPREPLY=()
    "_${program//-/_}" "$program" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD-1]}"
    printf '%s\n' "${COMPREPLY[@]}" | sort
}

source "$docs/fiva-cli.bash"
listed=$("$cli" --help | sed -n '/^Commands:$/,/^$/s/^  \([a-z][a-z-]*\).*/\1/p' | sort)
[ -n "$listed" ] || fail "fiva-cli --help lists no command"
commands=$(offered fiva-cli "" | grep -v '^--')
[ "$commands" = "$listed" ] || fail "completion offers [$(echo $commands)], fiva-cli lists [$(echo $listed)]"
[ "$(offered fiva-cli --)" = "$(printf -- '--help\n--version')" ] || fail "fiva-cli's own options"

for command in $listed; do
    usage=$("$cli" "$command" --help | head -1) || fail "fiva-cli $command --help exits with $?"
    known=$(grep -o -- '--[a-z-]*' <<<"$usage")
    for option in $(offered fiva-cli "$command" --); do
        [ "$option" = --help ] || grep -qx -- "$option" <<<"$known" || fail "$command: $option offered, not in '$usage'"
    done
done
[ "$(offered fiva-cli add --kind "")" = "$(printf 'directory\nfile\nurl')" ] || fail "values of add --kind"
[[ $(offered fiva-cli categories "") == *add-sub* ]] || fail "categories' sub-commands"

if [ -n "$app" ]; then
    source "$docs/fiva.bash"
    [ "$(offered fiva --)" = "$(printf -- '--help\n--version')" ] || fail "fiva's options"
    scratch=$(mktemp -d)
    touch "$scratch/a.fivabackup" "$scratch/b.txt"
    [ "$(offered fiva "$scratch/")" = "$scratch/a.fivabackup" ] || fail "fiva offers [$(offered fiva "$scratch/")]"
    rm -rf "$scratch"
fi

for file in "$docs"/_fiva*; do
    zsh -n "$file" || fail "zsh cannot read $file"
done
[ "$failures" -eq 0 ]
