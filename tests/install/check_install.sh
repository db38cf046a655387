#!/usr/bin/env bash
# Installs the library into a scratch prefix and builds a host module against it twice: through
# the CMake package and through pkg-config, as an integrator would.
set -euo pipefail
build_dir=$1
source_dir=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build_dir" --prefix "$scratch/prefix" > /dev/null

cmake -S "$source_dir/consumer" -B "$scratch/cmake-consumer" -DCMAKE_PREFIX_PATH="$scratch/prefix" > /dev/null
cmake --build "$scratch/cmake-consumer" > /dev/null
echo "find_package(ZQTELMIMgrBus): built"

export PKG_CONFIG_PATH="$scratch/prefix/lib/pkgconfig:$scratch/prefix/lib/x86_64-linux-gnu/pkgconfig"
# shellcheck disable=SC2046
g++ -std=c++17 -shared -fPIC -o "$scratch/host_module.so" "$source_dir/consumer/host_module.cpp" \
  $(pkg-config --cflags --libs ZQTELMIMgrBus)
echo "pkg-config ZQTELMIMgrBus: built"
