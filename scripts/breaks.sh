#!/usr/bin/env bash
# breaks.sh [SECONDS]
# Puts the faults of fuzz/breaks.txt into a copy of the tree, one at a time, and prints a table of
# who finds them: the unit tests of the two plugins, the replay tests, and the fuzzers, from nothing,
# within so many seconds each (60). Ends with 1 when there is one that nobody finds.
set -euo pipefail

cd "$(dirname "$0")/.."
seconds=${1:-60}
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
mapfile -d '' files < <(git ls-files -z --cached --others --exclude-standard)
for file in "${files[@]}"; do
    [[ ! -e $file ]] || cp --parents "$file" "$copy"
done
cd "$copy"
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

# Prints how long the command took to fail, or "-" when it did not.
time_to_fail() { # COMMAND...
    local start=${EPOCHREALTIME/./}
    if (ulimit -t 120 && "$@") >/dev/null 2>&1 </dev/null; then
        echo -
    else
        awk -v us=$((${EPOCHREALTIME/./} - start)) 'BEGIN { printf "%.1f s", us / 1e6 }'
    fi
}

# What is tried; called by name.
# shellcheck disable=SC2317
unit_tests() {
    build/fuzz/bin/vorn_dictionary_tests && build/fuzz/bin/vorn_settings_tests
}
# shellcheck disable=SC2317
replay() {
    ctest --test-dir build/fuzz --stop-on-failure -R '^fuzz_(dictionary|settings)$'
}
# shellcheck disable=SC2317
fuzz() { # TARGET
    build/fuzz/bin/vorn_fuzz_"$1" -max_len=800 -len_control=0 -seed=1 \
        -max_total_time="$seconds" -artifact_prefix=build/
}

sed -i 's/"VORN_WERROR": "ON"/"VORN_WERROR": "OFF"/' CMakePresets.json # faults leave things unused
say "Building" >&2
build_preset fuzz vorn_settings_tests vorn_dictionary_tests \
    vorn_fuzz_{settings,dictionary}{,_replay}
result=0
printf '| file | what goes wrong | unit tests | replay | fuzzer |\n|---|---|---|---|---|\n'
while IFS= read -r file && IFS= read -r whole && IFS= read -r broken && IFS= read -r effect; do
    source=$(<"$file")
    rest=${source/"$whole"/}
    if [[ ${#rest} -ne $((${#source} - ${#whole})) || $rest == *"$whole"* ]]; then
        echo "not once in $file: $whole" >&2
        exit 1
    fi
    printf '%s\n' "${source/"$whole"/"$broken"}" >"$file"
    build_preset fuzz vorn_settings_plugin vorn_dictionary_plugin
    target=settings
    [[ $file == *vorn.settings* ]] || target=dictionary
    by_tests=$(time_to_fail unit_tests)
    by_replay=$(time_to_fail replay)
    by_fuzzer=$(time_to_fail fuzz "$target")
    printf '%s\n' "$source" >"$file"
    printf '| %s | %s | %s | %s | %s |\n' \
        "${file##*/}" "$effect" "$by_tests" "$by_replay" "$by_fuzzer"
    [[ $by_tests$by_replay$by_fuzzer != --- ]] || result=1
    read -r _ || true # the empty line between blocks
done < <(tail -n +4 fuzz/breaks.txt)
exit "$result"
