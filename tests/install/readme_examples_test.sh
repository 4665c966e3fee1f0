#!/usr/bin/env bash
# The installed package as another project and a user meet it: the build is
# installed with `cmake --install --prefix` into a fresh folder, every C++
# example of the README is compiled with the flags pkg-config gives for
# aostore there and run, and the installed tool checks the containers they
# wrote; the manual page and the bash completion are where man and bash look.
#   readme_examples_test.sh BUILD_DIR SOURCE_DIR CXX [COMPILER FLAGS...]
set -euo pipefail
build=$1 source=$2 cxx=$3
shift 3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null

pc=$(find "$prefix" -name aostore.pc)
[ -n "$pc" ] || { echo "no aostore.pc under $prefix" >&2; exit 1; }
export PKG_CONFIG_PATH=${pc%/*}
includedir=$(pkg-config --variable=includedir aostore)
[ -f "$includedir/aostore/aostore.h" ] || { echo "pkg-config's includedir $includedir holds no aostore.h" >&2; exit 1; }

awk -v dir="$work" '/^```cpp$/ { n++; on = 1; next } /^```$/ { on = 0 } on { print > (dir "/example" n ".cpp") }' \
  "$source/README.md"
examples=("$work"/example*.cpp)
[ -f "${examples[0]}" ] || { echo "the README has no C++ example" >&2; exit 1; }

mkdir "$work/run"
for example in "${examples[@]}"; do
  program=${example%.cpp}
  # shellcheck disable=SC2046 # the flags are words
  "$cxx" -std=c++20 "$@" $(pkg-config --cflags aostore) "$example" -o "$program" $(pkg-config --libs aostore)
  (cd "$work/run" && LD_LIBRARY_PATH=$(pkg-config --variable=libdir aostore) "$program") ||
    { echo "${example##*/} failed" >&2; exit 1; }
done

containers=("$work"/run/*.ao)
[ -f "${containers[0]}" ] || { echo "the examples wrote no container" >&2; exit 1; }
for container in "${containers[@]}"; do "$prefix/bin/aostore" check "$container"; done

[ -f "$prefix/share/man/man1/aostore.1" ] || { echo "no manual page installed" >&2; exit 1; }
[ -f "$prefix/share/bash-completion/completions/aostore" ] || { echo "no bash completion installed" >&2; exit 1; }
echo "${#examples[@]} README examples built with pkg-config against $prefix and run"
