#!/bin/sh
# pkg_config.sh PREFIX LIBDIR DICTIONARY: builds the programs of project/ as a Makefile would, and runs them.
# CC, CXX, CFLAGS and CXXFLAGS come from the environment.
set -eu
cd "$(dirname "$0")/project"
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
export PKG_CONFIG_PATH="$1/$2/pkgconfig" LD_LIBRARY_PATH="$1/$2"
version=$(sed -n 's/.* CALLORV_VERSION "\(.*\)"/\1/p' "$1/include/callorv/version.h")
[ "$(pkg-config --modversion callorv)" = "$version" ]
flags="-Wall -Wextra -pedantic -Werror $(pkg-config --cflags callorv)"
# shellcheck disable=SC2046,SC2086
$CC ${CFLAGS:-} -std=c99 $flags use.c -o "$out/use_c" $(pkg-config --libs callorv)
# shellcheck disable=SC2046,SC2086
$CXX ${CXXFLAGS:-} -std=c++11 $flags use.cpp -o "$out/use_cpp" $(pkg-config --libs callorv)
"$out/use_c"
"$out/use_cpp" "$3"
