#!/usr/bin/env bash
# Installs the libraries into a new folder, moves that folder, and builds against them in each way that
# a user might: with the compiler alone, with pkg-config, and with CMake's find_package(). The
# scripts are the README's and those at the top of tarn_form.h and tarn_serve.h, and each build of one
# must print what the README shows, the fields of the README's query, or a greeting.
set -euo pipefail

# A compiler is an absolute path, followed by the flags that the library was built with.
build=$1 source=$2 cc=$3 cxx=$4

fail() {
  printf 'installed_test.sh: %s\n' "$*" >&2
  exit 1
}

[[ $cc == /* && $cxx == /* ]] || fail 'a compiler is not an absolute path'

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
cd "$root"
unset CPATH LIBRARY_PATH LD_LIBRARY_PATH

# Some compilers drop libraries that a program does not use. Here an unused C++ runtime must stay
# visible.
mkdir bin
printf '#!/bin/sh\nexec %s -Wl,--no-as-needed "$@"\n' "$cc" >bin/cc
printf '#!/bin/sh\nexec %s -Wl,--no-as-needed "$@"\n' "$cxx" >bin/c++
chmod +x bin/*
export PATH=$root/bin:$PATH

cmake --install "$build" --prefix "$root/installed" --component Unspecified \
  >/dev/null
mv installed moved
library=$(dirname "$(find "$root/moved" -name libtarn.so)")
if grep -rIlF -e "$root/installed" -e "$build" -e "$source" moved; then
  fail 'these files name the folder of the installation or of the build'
fi
diff -r "$source/include" moved/include || fail 'the headers installed are not those of include/'

# ---- The reference -------------------------------------------------------------------------------

if [ -d "$build/docs/man" ]; then
  found=$(man -M "$(dirname "$(dirname "$(find moved -name tarn.3)")")" -w Tarn_getFile) ||
    fail 'man does not find Tarn_getFile'
  [[ $found == */man3/Tarn_new.3 ]] || fail "man takes Tarn_getFile for $found"
fi
if [ -d "$build/docs/html" ]; then
  diff -r "$build/docs/html" moved/share/doc/tarn/html ||
    fail "the installed site differs from the one that was built"
fi

# ---- The README's scripts ------------------------------------------------------------------------

# Extracts a script from the README, with the commands to compile and call it and the output shown.
from_readme() {
  program=./${1%.*}
  awk -v begin="\`\`\`${1##*.}" \
    '$0 == begin { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/README.md" >"$1"
  compile=$(sed -n "s/^\\$ \(c.* $1 .*\)/\1/p" "$source/README.md")
  call=$(sed -n "s|^\\$ \(.* $program\)\$|\1|p" "$source/README.md")
  shown=$(sed -n "\|^\\$ .* $program\$|,/^\`\`\`\$/p" "$source/README.md" | sed '1d;$d')
  [[ -s $1 && $compile && $call && $shown ]] || fail "README.md has no $1, or no command for it"
}

# Calls a program instead of the README's, with more variables if there are more arguments. "…" at
# the end of the output shown matches anything.
greets() {
  local printed
  printed=$(env "${@:2}" bash -c "${call/$program/$1}" | tr -d '\r')
  [[ $printed == "$shown" || ($shown == *… && $printed == "${shown%…}"*) ]] ||
    fail "$(printf 'README.md shows:\n%s\n%s prints:\n%s' "$shown" "$1" "$printed")"
}

# The script at the top of tarn_form.h.
{
  printf '#include <stdio.h>\n#include <tarn_form.h>\nint main(void) {\n'
  sed -n '/^ \*   TarnForm \*form/,/^ \*$/s/^ \* *//p' "$source/include/tarn_form.h"
  printf 'return 0;\n}\n'
} >fields.c
grep -q 'TarnForm_close(form);' fields.c || fail 'tarn_form.h does not begin with a script'

# Calls a build of that script with the README's query.
prints_fields() {
  local printed
  printed=$(env "${@:2}" QUERY_STRING='name=Ada+%26+Co&polite=on' "$1" 2>&1)
  [ "$printed" = $'name: Ada & Co\npolite: on' ] || fail "$1 prints: $printed"
}

# The script at the top of tarn_serve.h.
sed -n '/^ \* @code/,/^ \* @endcode/s/^ \* \{0,1\}//p' "$source/include/tarn_serve.h" |
  sed '1d;$d' >serve.c
grep -q 'return tarn_serve(script);' serve.c || fail 'tarn_serve.h does not begin with a script'

# Calls a build of that script as CGI.
serves() {
  local printed
  printed=$(env "${@:2}" "$1" 2>&1 | tr -d '\r')
  [ "$printed" = $'Content-Type: text/plain\n\nHello' ] || fail "$1 prints: $printed"
}

# Prints the shared libraries that a program needs, on one line.
needs() {
  readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | xargs
}

# Checks that a program needs exactly these libraries, and so no C++ runtime.
asks_for() {
  local found
  found=$(needs "$1")
  [ "$found" = "$2" ] || fail "$1 needs '$found', expected '$2'"
}

# ---- With the compiler alone, which searches the folders -----------------------------------------

by_compiler() {
  env CPATH="$root/moved/include" LIBRARY_PATH="$library" "$@"
}

from_readme welcome.cpp
by_compiler bash -c "$compile"
greets ./welcome LD_LIBRARY_PATH="$library"

by_compiler cc -std=c++17 -fno-exceptions welcome.cpp -ltarn_form -ltarn -o welcome-alone
greets ./welcome-alone LD_LIBRARY_PATH="$library"
asks_for welcome-alone 'libtarn_form.so.1 libtarn.so.1 libc.so.6'

from_readme greet.c
by_compiler bash -c "$compile"
greets ./greet LD_LIBRARY_PATH="$library"
asks_for greet 'libtarn_form.so.1 libc.so.6'
by_compiler cc greet.c -l:libtarn_form.a -o greet-archive
greets ./greet-archive
asks_for greet-archive libc.so.6

# From here on, the same on tarn.h.
cp "$source/tests/installed/greet.c" .
by_compiler cc -std=c99 -Wall -Wextra greet.c -ltarn -o greet
greets ./greet LD_LIBRARY_PATH="$library"
asks_for greet 'libtarn.so.1 libc.so.6'

by_compiler cc greet.c -l:libtarn.a -o greet-archive
greets ./greet-archive
asks_for greet-archive libc.so.6

cp "$source/tests/installed/greet.cpp" .
by_compiler c++ -std=c++17 greet.cpp -ltarn -o greet++
greets ./greet++ LD_LIBRARY_PATH="$library"

strict=(-Wall -Wextra -Wpedantic -Werror)
for example in "$source"/examples/*.c; do
  by_compiler cc -std=c99 "${strict[@]}" "$example" -ltarn_form -ltarn -ltarn_serve -o example
done
for example in "$source"/examples/*.cpp; do
  # It needs libsodium, which not every machine has. The build compiles it where there is one.
  if [[ $example == */todo.cpp ]]; then continue; fi
  by_compiler cc -std=c++17 -fno-exceptions "${strict[@]}" "$example" -ltarn_form -ltarn \
    -ltarn_serve -o example
  asks_for example 'libtarn_form.so.1 libtarn.so.1 libtarn_serve.so.1 libc.so.6'
done
by_compiler c++ -std=c++11 "${strict[@]}" -fsyntax-only -x c++ "$source/examples/store.h"

by_compiler cc -std=c99 "${strict[@]}" fields.c -ltarn_form -o fields
prints_fields ./fields LD_LIBRARY_PATH="$library"
asks_for fields 'libtarn_form.so.1 libc.so.6'
by_compiler cc fields.c -l:libtarn_form.a -o fields-archive
prints_fields ./fields-archive
asks_for fields-archive libc.so.6
by_compiler c++ -std=c++11 "${strict[@]}" -x c++ fields.c -ltarn_form -o fields++
prints_fields ./fields++ LD_LIBRARY_PATH="$library"

by_compiler cc -std=c99 "${strict[@]}" serve.c -ltarn_serve -o serve
serves ./serve LD_LIBRARY_PATH="$library"
asks_for serve 'libtarn_serve.so.1 libc.so.6'
by_compiler cc serve.c -l:libtarn_serve.a -o serve-archive
serves ./serve-archive
asks_for serve-archive libc.so.6
by_compiler c++ -std=c++11 "${strict[@]}" -x c++ serve.c -ltarn_serve -o serve++
serves ./serve++ LD_LIBRARY_PATH="$library"
by_compiler cc -std=c++17 -fno-exceptions "${strict[@]}" "$source/docs/examples/cpp-serve.cpp" \
  -ltarn_serve -o cpp-serve
[[ $(QUERY_STRING=1 LD_LIBRARY_PATH=$library ./cpp-serve) == *'18 m'* ]] ||
  fail 'cpp-serve.cpp prints something else'
asks_for cpp-serve 'libtarn_serve.so.1 libc.so.6'

# Each C header, alone and after any other one, included twice.
for header in moved/include/*.h; do
  for other in moved/include/*.h; do
    printf '#include <%s>\n' "${other##*/}" "${header##*/}" "${header##*/}" >header.c
    by_compiler cc -std=c99 "${strict[@]}" -fsyntax-only header.c
    by_compiler c++ -std=c++11 "${strict[@]}" -fsyntax-only -x c++ header.c
  done
done
[ "$(find moved/include -maxdepth 1 -name '*.h' | wc -l)" -ge 3 ] || fail 'headers are missing'

# ---- With pkg-config -----------------------------------------------------------------------------

export PKG_CONFIG_PATH=$library/pkgconfig
read -ra flags <<<"$(pkg-config --cflags --libs tarn)"
read -ra static_flags <<<"$(pkg-config --static --cflags --libs tarn)"

cc greet.c "${flags[@]}" -o greet-pkg-config
greets ./greet-pkg-config LD_LIBRARY_PATH="$library"
asks_for greet-pkg-config 'libtarn.so.1 libc.so.6'

c++ -std=c++17 greet.cpp "${flags[@]}" -o greet-pkg-config++
greets ./greet-pkg-config++ LD_LIBRARY_PATH="$library"

cc -static greet.c "${static_flags[@]}" -o greet-pkg-config-static
greets ./greet-pkg-config-static
asks_for greet-pkg-config-static ''

c++ -std=c++17 -static greet.cpp "${static_flags[@]}" -o greet-pkg-config-static++
greets ./greet-pkg-config-static++

[ "$(pkg-config --modversion tarn-form)" = "$(pkg-config --modversion tarn)" ] ||
  fail 'tarn.pc and tarn-form.pc have different versions'
read -ra flags <<<"$(pkg-config --cflags --libs tarn-form)"
read -ra static_flags <<<"$(pkg-config --static --cflags --libs tarn-form)"
cc fields.c "${flags[@]}" -o fields-pkg-config
prints_fields ./fields-pkg-config LD_LIBRARY_PATH="$library"
asks_for fields-pkg-config 'libtarn_form.so.1 libc.so.6'
cc -static fields.c "${static_flags[@]}" -o fields-pkg-config-static
prints_fields ./fields-pkg-config-static
asks_for fields-pkg-config-static ''

[ "$(pkg-config --modversion tarn-serve)" = "$(pkg-config --modversion tarn)" ] ||
  fail 'tarn.pc and tarn-serve.pc have different versions'
read -ra flags <<<"$(pkg-config --cflags --libs tarn-serve)"
read -ra static_flags <<<"$(pkg-config --static --cflags --libs tarn-serve)"
cc serve.c "${flags[@]}" -o serve-pkg-config
serves ./serve-pkg-config LD_LIBRARY_PATH="$library"
asks_for serve-pkg-config 'libtarn_serve.so.1 libc.so.6'
cc -static serve.c "${static_flags[@]}" -o serve-pkg-config-static
serves ./serve-pkg-config-static
asks_for serve-pkg-config-static ''

# ---- The tools -----------------------------------------------------------------------------------

query=$(sed -n "s/^QUERY_STRING='\(.*\)' .*/\1/p" <<<"$call")
printed=$(LD_LIBRARY_PATH=$library moved/bin/tarn-run --query "$query" ./greet | tr -d '\r')
[ "$printed" = "HTTP/1.1 200 OK
$shown" ] || fail "tarn-run prints: $printed"
printf '#!%s/moved/bin/tarn-record %s\n./greet\n' "$root" "$root/records" >recorded
chmod +x recorded
mkdir records
greets ./recorded LD_LIBRARY_PATH="$library"
again=$(LD_LIBRARY_PATH='' moved/bin/tarn-run --replay records/* ./greet | tr -d '\r')
[ "$again" = "$printed" ] ||
  fail 'tarn-run prints something else when it replays the record'
asks_for moved/bin/tarn-form libc.so.6
printed=$(QUERY_STRING=$query moved/bin/tarn-form --no-data)
[ "$(tail -n 1 <<<"$printed")" = '{"end": true}' ] || fail "tarn-form prints: $printed"
asks_for moved/bin/tarn-serve libc.so.6
printed=$(env -u LISTEN_PID moved/bin/tarn-serve ./serve-archive </dev/null | tr -d '\r')
[ "$printed" = $'Content-Type: text/plain\n\nHello' ] || fail "tarn-serve prints: $printed"
for page in tarn-run tarn-record tarn-form tarn-serve; do
  [[ $(man -M moved/share/man -w "$page") == */man1/$page.1 ]] || fail "man does not find $page"
done

# ---- With find_package() -------------------------------------------------------------------------

# A project in C alone, and one that may mix C and C++, where CMake chooses how to link.
for languages in C 'C;CXX'; do
  project=find_package-${languages/;/-}
  mkdir "$project"
  cp fields.c serve.c "$source"/tests/installed/* "$project"
  cmake -S "$project" -B "$project/build" -G Ninja --no-warn-unused-cli \
    -DLANGUAGES="$languages" -DCMAKE_PREFIX_PATH="$root/moved" \
    -DCMAKE_C_COMPILER="$root/bin/cc" -DCMAKE_CXX_COMPILER="$root/bin/c++" >log ||
    { cat log; fail "$project cannot be configured"; }
  cmake --build "$project/build" >log || { cat log; fail "$project cannot be built"; }
  grep -qxF "tarn_DIR:PATH=$library/cmake/tarn" "$project/build/CMakeCache.txt" ||
    fail "$project found another tarn"

  greets "./$project/build/c-shared"
  greets "./$project/build/c-static"
  asks_for "$project/build/c-shared" 'libtarn.so.1 libc.so.6'
  asks_for "$project/build/c-static" libc.so.6
  prints_fields "./$project/build/form-shared"
  prints_fields "./$project/build/form-static"
  asks_for "$project/build/form-shared" 'libtarn_form.so.1 libc.so.6'
  asks_for "$project/build/form-static" libc.so.6
  serves "./$project/build/serve-shared"
  serves "./$project/build/serve-static"
  asks_for "$project/build/serve-shared" 'libtarn_serve.so.1 libc.so.6'
  asks_for "$project/build/serve-static" libc.so.6
done

greets "./$project/build/cpp-shared"
greets "./$project/build/cpp-static"
[[ " $(needs "$project/build/cpp-shared") " == *' libtarn.so.1 '* ]] ||
  fail 'in C++, tarn::tarn is not the shared library'
[[ $(needs "$project/build/cpp-static") != *tarn* ]] ||
  fail 'in C++, tarn::tarn_static is not the static library'
