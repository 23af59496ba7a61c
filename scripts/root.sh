# shellcheck shell=bash
# root.sh
# A minimal Debian system in a directory, to show what works from nothing; to be sourced after
# lib.sh, by root. Packages come from where this machine's own come from.

# Makes the system: the essential packages and apt, nothing else.
make_root() { # DIRECTORY
    local suite mirror
    ensure_packages debootstrap
    suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
    # shellcheck disable=SC2016 # for apt-get to expand
    mirror=$(apt-get indextargets --format '$(REPO_URI)' \
        "Codename: $suite" 'Created-By: Packages' 'Component: main' | head -n 1)
    say "Making a minimal $suite"
    debootstrap --variant=minbase "$suite" "$1" "$mirror" >/dev/null
    rm -r "$1/etc/apt"
    cp -r /etc/apt "$1/etc/apt"
    cp /etc/resolv.conf /etc/hosts "$1/etc/"
    chmod 755 "$1" # apt downloads as a user of its own
    in_root "$1" apt-get update -q >/dev/null
}

# Runs a command in the system, with an empty environment and mounts that end with it.
in_root() { # DIRECTORY COMMAND...
    # shellcheck disable=SC2016 # for the inner shell to expand
    unshare --mount --pid --fork bash -ec '
        mount -t proc proc "$1/proc"
        mount --rbind /dev "$1/dev"
        exec env -i HOME=/root TERM=dumb PATH=/usr/sbin:/usr/bin:/sbin:/bin chroot "$@"' - "$@"
}

# Copies the tree as a clone of it would be, with what is not committed yet, to /vorn.
copy_tree_to_root() { # DIRECTORY
    mkdir "$1/vorn"
    git ls-files -z --cached --others --exclude-standard | tar -c --null -T - | tar -x -C "$1/vorn"
}
