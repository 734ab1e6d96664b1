#!/bin/sh
# Builds and runs the C program with what pkg-config says: pkg_config_consumer.sh CC PKG_CONFIG LIBRARY_DIRECTORY
set -eu
export PKG_CONFIG_PATH="$3/pkgconfig"
flags=$("$2" --cflags --libs jorvet)
# shellcheck disable=SC2086 # the flags are words
"$1" -std=c99 "$(dirname "$0")/find_package/main.c" $flags -ljorvet-sim -Wl,-rpath,"$3" -o pkg_config_consumer
./pkg_config_consumer
