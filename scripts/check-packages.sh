#!/usr/bin/env bash
# check-packages.sh [--root]
# Makes the Debian packages and shows that they are right: lintian finds nothing, the plugins
# export and need what they should, programs build against an installation with g++ and clang, the
# tool works from it, and removal leaves nothing behind.
#
#   --root   installs with apt in a minimal system of its own (for root), not in a mere directory
set -euo pipefail

cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh
# shellcheck source=scripts/root.sh
. scripts/root.sh

build=build/package packages=build/package/packages
work=$(mktemp -d)
trap 'rm -rf --one-file-system "$work"' EXIT
root=$work/root

# Shows what a command prints only when it fails.
quietly() { # COMMAND...
    "$@" >"$work/printed" 2>&1 || {
        cat "$work/printed" >&2
        return 1
    }
}

make_packages() {
    ensure_packages g++ clang cmake make pkg-config nlohmann-json3-dev libcli11-dev libedit-dev \
        dpkg-dev lintian man-db git
    SOURCE_DATE_EPOCH=$(git log -1 --format=%ct) # the same packages of the same sources
    export SOURCE_DATE_EPOCH
    build_preset package
    rm -rf "$packages"
    quietly cpack --config "$build/CPackConfig.cmake" -B "$packages"
    rm -r "$packages/_CPack_Packages"
    (cd "$packages" && sha256sum -- *.deb)
}

# Stripped, they still export their entry points, and need nothing but the C and C++ libraries.
check_plugins() {
    local plugin
    dpkg-deb -x "$packages"/vorn-plugins_*.deb "$work/plugins"
    for plugin in "$work"/plugins/usr/lib/vorn/plugins/*.so; do
        tests/contract/check_exports.sh nm "$plugin" tests/contract/plugin_exports.txt
        if objdump -p "$plugin" | grep -E 'SONAME|NEEDED' |
            grep -vE ' (libstdc\+\+|libgcc_s|libc|libm|ld-linux-[^ ]*)\.so\.[0-9]+$'; then
            echo "$plugin needs or is what it should not" >&2
            return 1
        fi
        echo "$(basename "$plugin"): exports and needs what it should"
    done
}

# What people do with an installed tool, found through PATH.
session() { # MANUAL_PAGE
    set -euo pipefail
    cd "$(mktemp -d)"
    vorn-settings --help >help && sed -n 1p help
    man "$1" >manual && grep -m 1 vorn-settings manual
    echo '{"view": {"width": 1280}}' >app.json
    echo '{"view": {"height": 720}, "theme": "dark"}' >user.json
    [[ $(vorn-settings --file app.json get /view/width) == 1280 ]]
    vorn-settings --file app.json set /view/width 1600
    [[ $(<app.json) == '{"view": {"width": 1600}}' ]]
    vorn-settings merge app.json user.json >both.json
    [[ $(vorn-settings --file both.json get --json /view | tr -d ' \n') == \
        '{"width":1600,"height":720}' ]]
    vorn-settings --file app.json watch /view >seen &
    local width
    for width in {1..100}; do # until the watch is at work
        vorn-settings --file app.json set /view/width "$width"
        sleep 0.05
        ! grep -q '/view/width.*[0-9]' seen || break
    done
    kill "$!"
    grep -m 1 '/view/width.*[0-9]' seen
    rm -r "$PWD"
    echo 'session: get, set, merge, watch'
}

# Every file of the system but what its package management notes of itself.
files_of_root() {
    (cd "$root" && find . \( -path ./var -o -path ./tmp -o -path ./vorn \) -prune -o -print | sort)
}

check_nothing_is_left() {
    files_of_root | diff "$work/before" -
    echo 'removed: nothing is left'
}

# In a directory, by dpkg alone, with the compilers of this machine.
check_in_directory() {
    local dpkg=(dpkg --root="$root" --force-depends --log="$work/dpkg.log")
    ((EUID == 0)) || dpkg=(unshare --map-root-user "${dpkg[@]}")
    mkdir -p "$root"/var/lib/dpkg/{info,updates}
    touch "$root/var/lib/dpkg/status"
    files_of_root >"$work/before"
    quietly "${dpkg[@]}" --install "$packages"/*.deb
    (TMPDIR=$work PATH=$root/usr/bin:$PATH && session "$root"/usr/share/man/man1/vorn-settings.1*)
    tests/install/check_consumer.sh . "$root/usr" g++ clang++
    quietly "${dpkg[@]}" --purge vorn-settings libvorn-dev vorn-plugins
    check_nothing_is_left
}

# In a minimal system, by apt, which finds what they depend on; then with compilers of its own.
check_in_root() {
    local apt='apt-get -y -q --no-install-recommends'
    make_root "$root"
    copy_tree_to_root "$root"
    cp "$packages"/*.deb "$root/tmp"
    quietly in_root "$root" bash -c "$apt install man-db"
    files_of_root >"$work/before"
    in_root "$root" bash -c "$apt install /tmp/*.deb"
    in_root "$root" bash -c "$(declare -f session); session vorn-settings"
    in_root "$root" bash -c "$apt purge --auto-remove vorn-settings libvorn-dev vorn-plugins"
    check_nothing_is_left
    say 'Installing compilers and the packages'
    quietly in_root "$root" bash -c "$apt install g++ clang cmake make pkg-config /tmp/*.deb"
    in_root "$root" bash -c 'cd /vorn && tests/install/check_consumer.sh . /usr g++ clang++'
}

case ${1-} in
'') check_installed=check_in_directory ;;
--root) check_installed=check_in_root ;;
*) sed -n '2,7s/^# \{0,1\}//p' "$0" >&2 && exit 2 ;;
esac
make_packages
lintian --fail-on error,warning --allow-root "$packages"/*.deb
check_plugins
"$check_installed"
