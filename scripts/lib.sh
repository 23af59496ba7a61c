# shellcheck shell=bash
# lib.sh
# What the scripts share; to be sourced from the root of the tree.

# A line that tells what comes next, set off in a terminal.
say() { # TEXT...
    if [[ -t 1 && -z ${NO_COLOR:-} ]]; then
        printf '\033[1m%s\033[0m\n' "$*"
    else
        printf '%s\n' "$*"
    fi
}

# Installs the Debian packages that are missing; does nothing when none is.
ensure_packages() { # PACKAGE...
    local package missing=() as_root=()
    for package in "$@"; do
        if [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
            missing+=("$package")
        fi
    done
    ((${#missing[@]} > 0)) || return 0
    if ((EUID != 0)); then
        as_root=(sudo)
    fi
    say "Installing ${missing[*]}"
    local install=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive
        apt-get install -y -q --no-install-recommends "${missing[@]}")
    "${install[@]}" || { # the lists of packages may be old or not there at all
        "${as_root[@]}" apt-get update -q
        "${install[@]}"
    }
}

# Configures a preset with the tool and builds it, or the given targets of it, in build/NAME.
# Prints nothing but what goes wrong.
build_preset() { # NAME [TARGET...]
    local name=$1 output targets=()
    shift
    (($# == 0)) || targets=(--target "$@")
    output=$(mktemp)
    if ! { cmake --preset "$name" -DVORN_BUILD_TOOL=ON &&
        cmake --build "build/$name" -j "$(nproc)" "${targets[@]}"; } >"$output" 2>&1; then
        cat "$output" >&2
        rm -f "$output"
        return 1
    fi
    rm -f "$output"
}
