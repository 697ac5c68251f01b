#!/bin/bash
# What the scripts share; each sources it from the root of the source.

# Every script that calls scripts/setup has this option, anywhere among its arguments.
without_option=()
for argument; do
  if [ "$argument" = --no-install ]; then
    export TARN_NO_INSTALL=yes
  else
    without_option+=("$argument")
  fi
done
set -- "${without_option[@]}"

fail() {
  printf 'scripts/%s: %s\n' "$(basename -- "$0")" "$*" >&2
  exit 1
}

# Prints the comment at the start of the script.
usage() {
  local script
  script=scripts/$(basename -- "$0")
  sed -n '1d; s/^# \{0,1\}//p; /^set /q' "$script"
  if grep -q '^ *scripts/setup ' "$script"; then
    printf '\nWith --no-install it stops if a package is missing, before it builds anything.\n'
  fi
}

help_if_asked() {
  case ${1-} in
    -h | --help)
      usage
      exit
      ;;
  esac
}

# Call this before installing or building anything.
need_build_folder() {
  { mkdir -p build && [ -w build ]; } 2>/dev/null ||
    fail "cannot write to $PWD/build: copy the source to a folder of yours"
}

# Runs a long command with its output in a file, and prints a dot every other second.
patiently() {
  local log=$1 dots status=0
  shift
  (
    exec {never}<> <(:)
    while kill -0 $$ 2>/dev/null; do
      read -rt 2 -u "$never" || printf '.'
    done
  ) >&2 &
  dots=$!
  "$@" >>"$log" 2>&1 </dev/null || status=$?
  kill "$dots"
  wait "$dots" 2>/dev/null || true
  printf '\n' >&2
  return "$status"
}

# Runs a long command in the same way, with its output in the file that `log` names. If it fails,
# prints the end of its output and stops.
quietly() {
  patiently "${log:?}" "$@" || {
    tail -n 50 "$log" >&2
    fail "failed: $*"
  }
}
