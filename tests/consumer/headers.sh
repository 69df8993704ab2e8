#!/bin/sh
# headers.sh PREFIX SOURCE: every public header is installed and compiles alone in the oldest language that it serves.
# CC, CXX, CFLAGS and CXXFLAGS come from the environment.
set -eu
diff -r "$1/include/callorv" "$2/include/callorv"
include=$1/include
strict="-Wall -Wextra -Wshadow -pedantic -Werror -I $include"
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
cd "$work"

# alone STANDARD LANGUAGE HEADER COMPILER...
alone() {
  standard=$1 language=$2 header=$3
  shift 3
  echo "int iNotEmpty;" >"alone.$language"
  # shellcheck disable=SC2086
  "$@" $strict -std="$standard" -include "$header" -c "alone.$language"
}
for header in $(cd "$include" && find callorv -type f); do
  # shellcheck disable=SC2086
  alone c++11 c++ "$header" $CXX ${CXXFLAGS:-}
done
for standard in c++14 c++17 c++20; do
  # shellcheck disable=SC2086
  alone $standard c++ callorv/callorv.hpp $CXX ${CXXFLAGS:-}
done
# The system's headers have macros that must not meet a name of ours.
# shellcheck disable=SC2086
alone c++11 c++ callorv/callorv.hpp $CXX ${CXXFLAGS:-} -include linux/fs.h -include sys/mount.h
for header in callorv/callorv.h callorv/export.h callorv/version.h; do
  # shellcheck disable=SC2086
  alone c99 c "$header" $CC ${CFLAGS:-}
done
