#!/usr/bin/env bash
# Installs the library into a folder of its own and compiles what a user would compile against it:
# the examples, and the script and the command of the README, word for word.
set -euo pipefail

build=$1 source=$2 cc=$3 cxx=$4
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

cmake --install "$build" --prefix "$root/usr" >/dev/null
library=$(dirname "$(find "$root/usr" -name libtarn.so)")
export CPATH=$root/usr/include LIBRARY_PATH=$library LD_LIBRARY_PATH=$library

for example in "$source"/examples/*.c; do
  "$cc" -std=c99 -Wall -Wextra -Wpedantic -Werror "$example" -ltarn -o "$root/example"
done
for example in "$source"/examples/*.cpp; do
  "$cxx" -std=c++17 -Wall -Wextra -Wpedantic -Werror "$example" -ltarn -o "$root/example"
done

cd "$root"
awk '/^```c$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/README.md" >greet.c
command=$(sed -n 's/^\$ \(cc .*greet.*\)/\1/p' "$source/README.md")
[ -n "$command" ] || { echo "README.md has no command that compiles greet.c"; exit 1; }
mkdir bin && ln -s "$(command -v "$cc")" bin/cc
PATH=$root/bin:$PATH bash -c "$command"
call=$(sed -n 's/^\$ \(.*\.\/greet\)$/\1/p' "$source/README.md")
shown=$(sed -n '/^\$ .*\.\/greet$/,/^```$/p' "$source/README.md" | sed '1d;$d')
printed=$(bash -c "$call" | tr -d '\r')
if [ "$printed" != "$shown" ]; then
  printf 'README.md shows:\n%s\nthe script prints:\n%s\n' "$shown" "$printed"
  exit 1
fi

# A C program needs nothing but the C library, whichever Tarn it is linked to.
"$cc" greet.c "$library/libtarn.a" -o greet-static
[ "$(bash -c "${call/greet/greet-static}" | tr -d '\r')" = "$shown" ]
