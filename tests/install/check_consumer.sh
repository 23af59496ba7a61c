#!/usr/bin/env bash
# check_consumer.sh SOURCE_DIRECTORY BUILD_DIRECTORY
# Installs the build, moves the installation elsewhere, and builds and runs every example against it
# as projects of their own: through the CMake package, and the smallest one through pkg-config.
set -euo pipefail

source=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix"
plugins=$work/prefix/lib/vorn/plugins
export VORN_PLUGIN_PATH=$plugins

for example in embed layers watch plugin; do
    cmake -S "$source/examples/$example" -B "$work/$example" \
        -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build "$work/$example" >/dev/null
    arguments=()
    if [[ $example == plugin ]]; then
        arguments=("$work/plugin/libexample.volume.plugin.so")
    fi
    "$work/$example/vorn_example_$example" "${arguments[@]}" |
        diff "$source/examples/$example/expected.txt" -
    echo "$example: built and run through find_package"
done

PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name vorn.pc)")
export PKG_CONFIG_PATH
[[ $(realpath "$(pkg-config --variable=plugindir vorn)") == "$(realpath "$plugins")" ]]
read -ra flags < <(pkg-config --cflags --libs vorn)
"${CXX:-c++}" -std=c++17 "$source/examples/embed/main.cpp" "${flags[@]}" -o "$work/embed-pkg-config"
"$work/embed-pkg-config" | diff "$source/examples/embed/expected.txt" -
echo "embed: built and run through pkg-config"
