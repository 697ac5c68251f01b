#!/bin/bash
# Usage: install_test.sh BUILD-FOLDER SOURCE-FOLDER
#
# Everybody can read what root installs under a strict umask, and the uninstall target removes
# exactly the installed files. The test uses copies of the installation script and of the list of
# installed files, so those of the build stay unchanged.
set -euo pipefail
export LC_ALL=C
build=$1 source=$2

fail() {
  printf 'install_test.sh: %s\n' "$*" >&2
  exit 1
}

root=$(mktemp -d)
trap 'chmod -R u+rwX "$root"; rm -rf "$root"' EXIT
unset DESTDIR

# The installation script contains absolute paths, including that of its list of installed files.
installed=$root/installed.txt
cp "$build/cmake_install.cmake" "$root/cmake_install.cmake"
sed -i -e "s|\[\[$build/installed.txt\]\]|[[$installed]]|" \
  -e "s|\"$build/[^/\"]*MANIFEST}|\"$root/manifest|" \
  "$root/cmake_install.cmake"
grep -qF "[[$installed]]" "$root/cmake_install.cmake" ||
  fail 'the installation script keeps no list of installed files'

install_to() {
  cmake -DCMAKE_INSTALL_PREFIX="$1" -P "$root/cmake_install.cmake" >"$root/log"
}

uninstall() {
  cmake -D TARN_INSTALLED="$installed" -P "$source/packaging/cmake/uninstall.cmake" 2>&1
}

# Lists the content of a folder with types and link targets.
listing() {
  find "$1" -printf '%P %y %l\n' | sort
}

# ---- Permissions ---------------------------------------------------------------------------------

(umask 077 && install_to "$root/new/prefix")
files=$(find "$root/new/prefix" -type f | wc -l)
[ "$files" -gt 200 ] || fail "only $files files were installed"
for name in libtarn.so.1 libtarn.a libtarn_form.so.1 libtarn_form.a libtarn_serve.so.1 libtarn_serve.a \
  tarn.pc tarn-form.pc tarn-serve.pc tarn_form.h tarn_serve.h tarn-form.1 tarn-form tarn-serve.1 \
  tarn-serve tarn-serve@.socket tarn-serve@.service; do
  [ -n "$(find "$root/new/prefix" -name "$name")" ] || fail "$name was not installed"
done
closed=$(find "$root/new" ! -type l ! \( -type d -perm -755 \) ! \( -type f -perm -644 \))
[ -z "$closed" ] || fail "other users cannot read these: $closed"
for command in tarn-run tarn-record tarn-form tarn-serve; do
  [ "$(stat -c %a "$root/new/prefix/bin/$command")" = 755 ] ||
    fail "other users cannot run $command"
done

# ---- Uninstalling --------------------------------------------------------------------------------

uninstall
[ ! -e "$root/new" ] || fail "$(printf 'these are left:\n%s' "$(find "$root/new")")"
[[ $(uninstall) == Nothing* ]] || fail 'uninstalling twice does not say that nothing is left'

# Files and empty folders that existed before stay, and so do files that were added later. Files
# from an earlier installation, perhaps of an older version, are removed too.
mkdir -p "$root/old/share/man/man3" "$root/old/lib"
touch "$root/old/share/man/man3/other.3"
listing "$root/old" >"$root/before"
install_to "$root/old"
touch "$root/old/lib/older"
printf '%s\n' "$root/old/lib/older" >>"$installed"
install_to "$root/old"
[ -e "$root/old/lib/libtarn.so" ] || fail 'nothing was installed again'
uninstall
listing "$root/old" | diff "$root/before" - || fail 'the folder is not as it was'
install_to "$root/old"
touch "$root/old/share/doc/tarn/mine"
uninstall
[ "$(find "$root/old/share/doc")" = "$(printf '%s\n' "$root"/old/share/doc{,/tarn,/tarn/mine})" ] ||
  fail 'a file of the user is gone, or more than that is left'

# DESTDIR: only the staged tree is removed, not the same prefix on this machine.
mkdir -p "$root/prefix/lib"
touch "$root/prefix/lib/libtarn.so"
DESTDIR=$root/packed install_to "$root/prefix"
[ -e "$root/packed$root/prefix/lib/libtarn.so" ] || fail 'DESTDIR was ignored'
uninstall
[ ! -e "$root/packed" ] || fail 'files are left under DESTDIR'
[ -e "$root/prefix/lib/libtarn.so" ] || fail 'a file outside DESTDIR is gone'

# A user who may not remove the files gets an error, and root can try again.
if [ "$(id -u)" != 0 ]; then
  install_to "$root/closed"
  chmod a-w "$root/closed/lib"
  if said=$(uninstall); then fail 'files that cannot be removed are no error'; fi
  [[ $said == *'run this as root'* ]] || fail "uninstalling without permission printed: $said"
  chmod u+w "$root/closed/lib"
  uninstall
  [ ! -e "$root/closed" ] || fail 'the second try left something'
fi
printf '%d files installed, and removed.\n' "$files"
