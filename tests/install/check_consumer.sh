#!/usr/bin/env bash
# check_consumer.sh SOURCE_DIRECTORY INSTALLATION COMPILER...
# Builds and runs every example against the installation as projects of their own, with every
# compiler: through the CMake package, and the smallest one through pkg-config. Of a build directory,
# takes what it installs, moved elsewhere.
set -euo pipefail

source=$1 prefix=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [[ -f $prefix/CMakeCache.txt ]]; then
    cmake --install "$prefix" --prefix "$work/first" >/dev/null
    prefix=$work/prefix
    mv "$work/first" "$prefix"
fi
plugins=$prefix/lib/vorn/plugins
export VORN_PLUGIN_PATH=$plugins
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name vorn.pc)")
export PKG_CONFIG_PATH
[[ $(realpath "$(pkg-config --variable=plugindir vorn)") == "$(realpath "$plugins")" ]]
read -ra flags < <(pkg-config --cflags --libs vorn)

for compiler in "$@"; do
    for example in embed layers watch plugin; do
        build=$work/$compiler/$example
        cmake -S "$source/examples/$example" -B "$build" -DCMAKE_CXX_COMPILER="$compiler" \
            -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
        cmake --build "$build" >/dev/null
        arguments=()
        if [[ $example == plugin ]]; then
            arguments=("$build/libexample.volume.plugin.so")
        fi
        "$build/vorn_example_$example" "${arguments[@]}" |
            diff "$source/examples/$example/expected.txt" -
    done
    "$compiler" -std=c++17 "$source/examples/embed/main.cpp" "${flags[@]}" -o "$work/embed"
    "$work/embed" | diff "$source/examples/embed/expected.txt" -
    echo "$compiler: built and run through find_package and through pkg-config"
done
