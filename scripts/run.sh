#!/usr/bin/env bash
# run.sh
# Builds the tool and lets it do its main job on a real settings file: the list of the world's
# provinces, 5,000 entries with three values each. Installs what is missing first.
set -euo pipefail

cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

ensure_packages g++ cmake make pkg-config nlohmann-json3-dev libcli11-dev libedit-dev iso-codes
say 'Building in build/release (a minute, the first time) ...'
build_preset release vorn-settings
PATH=$PWD/build/release/bin:$PATH

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
cp /usr/share/iso-codes/json/iso_3166-2.json provinces.json
cat >commands <<'END'
watch /3166-2/2317
set /3166-2/2317/name "福井県"
get /3166-2/2317/name
save new.json
END

# Shows a command and runs it.
show() { # COMMAND...
    say "\$ $*"
    "$@"
}

printf '\nWhat is in the file: one list, and in it every province with three values.\n'
show vorn-settings --file provinces.json list
show vorn-settings --file provinces.json list /3166-2/2317
show vorn-settings --file provinces.json get /3166-2/2317/name
show vorn-settings --file provinces.json get --json /3166-2/2317
printf '(%d values in all)\n' "$(vorn-settings --file provinces.json list -r | grep -vc '/$')"

printf '\nWatching a province while its name is set, and saving everything to a new file.\n'
show cat commands
say '$ vorn-settings --file provinces.json shell < commands'
vorn-settings --file provinces.json shell <commands

printf '\nNothing else differs in the new file.\n'
result=0
show vorn-settings diff provinces.json new.json || result=$?
((result == 1)) # 1: they differ
