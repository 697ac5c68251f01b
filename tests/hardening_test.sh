#!/bin/bash
# Usage: hardening_test.sh BUILD-FOLDER SOURCE-FOLDER "C++-COMPILER FLAG..."
#
# Checks that the installed libraries, tarn-form, tarn-serve and the examples are hardened by the
# compiler and the linker.
# The flags are those of the build.
set -euo pipefail
export LC_ALL=C
build=$1 source=$2
read -ra compile <<<"$3"

fail() {
  printf 'hardening_test.sh: %s\n' "$*" >&2
  exit 1
}

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

cmake --install "$build" --prefix "$root" --component Unspecified >"$root/log"
libraries=() archives=()
for name in libtarn libtarn_form libtarn_serve; do
  library=$(find "$root" -name "$name.so.1") archive=$(find "$root" -name "$name.a")
  [[ -f $library && -f $archive ]] || fail "$name was not installed"
  libraries+=("$library")
  archives+=("$archive")
done
programs=("$root/bin/tarn-form" "$root/bin/tarn-serve")
tools=${#programs[@]}
for program in "${programs[@]}"; do
  [ -x "$program" ] || fail "$program was not installed"
done
for example in "$build"/examples/*; do
  if [[ -f $example && -x $example ]]; then programs+=("$example"); fi
done
if [[ -d $build/examples && ${#programs[@]} = "$tools" ]]; then fail 'there are no examples'; fi

# Runs a command on a file; its output must match the pattern.
says() {
  local file=$1 pattern=$2
  shift 2
  "$@" "$file" >"$root/said"
  grep -qE "$pattern" "$root/said" || fail "$*: $file has no $pattern"
}

# ---- By the compiler -----------------------------------------------------------------------------

# Tells whether the compiler, with this option, defines a macro that matches.
defines() {
  "${compile[@]}" -include "$source/packaging/cmake/fortify.h" ${1:+"$1"} \
    -x c++ -dM -E /dev/null >"$root/macros"
  grep -qE "#define $2" "$root/macros"
}
defines -O2 '_FORTIFY_SOURCE [23]$' || fail 'fortify.h does nothing'
! defines -O0 _FORTIFY_SOURCE || fail 'fortify.h ignores -O0'
optimised=no
if defines '' __OPTIMIZE__; then optimised=yes; fi

for file in "${libraries[@]}" "${archives[@]}" "${programs[@]}"; do
  symbols=(nm --undefined-only)
  if [[ $file == *.so.1 ]]; then symbols+=(-D); fi
  says "$file" '\b__stack_chk_fail' "${symbols[@]}"
  [ "$optimised" = no ] || says "$file" '\b__[a-z]+_chk\b' "${symbols[@]}"
done

options=(-fstack-protector-strong)
for option in -fstack-clash-protection -fcf-protection; do
  if "${compile[@]}" "$option" -Werror -x c++ -c /dev/null -o "$root/object" 2>/dev/null; then
    options+=("$option")
  fi
done
for objects in CMakeFiles/tarn_objects.dir CMakeFiles/tarn_form_objects.dir \
  CMakeFiles/tarn_serve_objects.dir tools/CMakeFiles/tarn-form.dir \
  tools/CMakeFiles/tarn-serve.dir; do
  grep -F " -o $objects/" "$build/compile_commands.json" >"$root/commands" ||
    fail "compile_commands.json does not have $objects"
  for option in "${options[@]}"; do
    if grep -vF -- " $option " "$root/commands"; then fail "these commands lack $option"; fi
  done
done

# Only x86 has control-flow enforcement. The linker keeps the library's note only if every object
# has one, and on 32 bits the C library's object for the stack protector has none.
if [[ ${options[*]} == *-fcf-protection* ]]; then
  for library in "${libraries[@]}"; do
    if defines '' __x86_64__; then says "$library" 'x86 feature:.*IBT, SHSTK' readelf -nW; fi
  done
  for archive in "${archives[@]}"; do
    members=$(ar t "$archive" | wc -l)
    noted=$(readelf -nW "$archive" | grep -c 'x86 feature:.*IBT, SHSTK') || true
    [[ $members -gt 0 && $members = "$noted" ]] ||
      fail "$noted of the $members members of $archive have the CET note"
  done
else
  ! defines '' '__(x86_64|i386)__' || fail 'the compiler for x86 refuses -fcf-protection'
fi

# ---- By the linker -------------------------------------------------------------------------------

for file in "${libraries[@]}" "${programs[@]}"; do
  says "$file" 'GNU_RELRO' readelf -lW
  says "$file" 'GNU_STACK .* RW +0x' readelf -lW
  says "$file" 'BIND_NOW|FLAGS.*NOW' readelf -dW
  if readelf -lW "$file" | grep -E 'LOAD .* RWE '; then fail "$file can change its own code"; fi
done
for file in "${libraries[@]}" "${programs[@]:0:tools}"; do
  needed=$(readelf -dW "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | xargs)
  # On ARM and RISC-V the stack protector's value is in the loader, which is part of the C library.
  nm -D "$file" >"$root/names"
  if grep -qE ' __stack_chk_guard(@|$)' "$root/names"; then
    needed=$(sed -E 's/ ?\bld-linux-\S+//' <<<"$needed" | xargs)
  fi
  [ "$needed" = libc.so.6 ] || fail "$file needs $needed"
done
printf 'Hardened: %d libraries, %d archives, %d tools and %d examples.\n' ${#libraries[@]} \
  ${#archives[@]} "$tools" $((${#programs[@]} - tools))
