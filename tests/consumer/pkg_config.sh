#!/bin/sh
# pkg_config.sh PREFIX LIBDIR DICTIONARY: builds the programs of project/, which it runs, and those of the README.
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
snippet() { ../../../scripts/snippet ../../../README.md "$1"; }
# shellcheck disable=SC2086
snippet c | $CC ${CFLAGS:-} -std=c99 $flags -x c - -o "$out/readme_c" -x none $(pkg-config --libs callorv)
# shellcheck disable=SC2086
snippet cpp | $CXX ${CXXFLAGS:-} -std=c++11 $flags -x c++ - -o "$out/readme_cpp" -x none $(pkg-config --libs callorv)
"$out/use_c"
"$out/use_cpp" "$3"
