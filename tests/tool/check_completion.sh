#!/usr/bin/env bash
# check_completion.sh PROGRAM SOURCE_DIRECTORY
# Completion under bash offers what there is, and neither it, nor that of zsh, nor the manual has
# forgotten a command or an option.
set -uo pipefail

program=$1
# shellcheck disable=SC1091
. "$2/completions/vorn-settings.bash"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
cat >app.json <<<'{"app": {"view": {"width": 1, "wide": 2}, "a b": 3}, "other": 4}'
failed=0

expect() { # EXPECTED WORD...
    COMP_WORDS=("$program" "${@:2}")
    COMP_CWORD=$(($# - 1))
    _vorn_settings
    [[ "${COMPREPLY[*]}" == "$1" ]] && return
    printf 'expected %s\nfound    %s\nafter    %s\n' "$1" "${COMPREPLY[*]}" "${*:2}" >&2
    failed=1
}

expect 'set shell' s
expect '/app/ /other' --file app.json get ''
expect '/app/view/ /app/a\ b' --file app.json list -r /app/
expect '/app/view/width /app/view/wide' --file = app.json --strict reset --force /app/view/w
expect '/app/a\ b' --file "'app.json'" get '"/app/a'
expect '' --file app.json set /app/view/width ''
expect 'app.json' diff app.json a
expect 'int' --file app.json set --type i
expect 'always' --color = al
for command in $("$program" --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p'); do
    expect "$command" "$command"
    for option in $("$program" "$command" --help | grep -oE '^  (-.,)?--[a-z-]+' | sed 's/.*--/--/'); do
        expect "$option" "$command" "$option"
        for text in man/vorn-settings.1 completions/_vorn-settings; do
            grep -qwe "$option" <(sed 's/\\//g' "$2/$text") && continue
            echo "$text has no $option of $command" >&2
            failed=1
        done
    done
done
exit "$failed"
