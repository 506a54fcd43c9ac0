#!/bin/sh
# Installs the build into a temporary prefix, builds examples/minimal-host out of tree against
# it twice (CMake package, pkg-config) and plays a made file with each on the silent device.
#   install-examples.sh BUILD_DIR SOURCE_DIR
set -eu
build="$1" source="$2"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"
sox -n -r 44100 -c 2 "$work/item.wav" synth 1 sine 440
cmake -S "$source/examples/minimal-host" -B "$work/cmake" -G Ninja \
    -DCMAKE_PREFIX_PATH="$work/prefix" > "$work/configure.log"
cmake --build "$work/cmake" > "$work/build.log"
"$work/cmake/minimal-host" "$work/item.wav"
export PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig"
c++ -o "$work/pc-host" "$source/examples/minimal-host/main.cpp" $(pkg-config --cflags --libs corvid-native)
LD_LIBRARY_PATH="$work/prefix/lib" "$work/pc-host" "$work/item.wav"
