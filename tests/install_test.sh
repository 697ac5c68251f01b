#!/bin/bash
# Usage: install_test.sh BUILD-FOLDER SOURCE-FOLDER
#
# Everybody can read what root installs under a narrow umask, and the uninstall target takes all of
# it away again, and nothing else. The build folder is a copy: the list of what was installed from
# the real one stays as it is.
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

# Where the installation script looks for what it installs is written into it; where it keeps its
# list is, too.
installed=$root/installed.txt
cp "$build/cmake_install.cmake" "$root/cmake_install.cmake"
sed -i -e "s|\[\[$build/installed.txt\]\]|[[$installed]]|" \
  -e "s|\"$build/[^/\"]*MANIFEST}|\"$root/manifest|" \
  "$root/cmake_install.cmake"
grep -qF "[[$installed]]" "$root/cmake_install.cmake" || fail 'no list is kept of what is installed'

install_to() {
  cmake -DCMAKE_INSTALL_PREFIX="$1" -P "$root/cmake_install.cmake" >"$root/log"
}

uninstall() {
  cmake -D TARN_INSTALLED="$installed" -P "$source/packaging/cmake/uninstall.cmake" 2>&1
}

# What stands in a folder, each with its type and target.
listing() {
  find "$1" -printf '%P %y %l\n' | sort
}

# ---- Rights --------------------------------------------------------------------------------------

(umask 077 && install_to "$root/new/prefix")
files=$(find "$root/new/prefix" -type f | wc -l)
[ "$files" -gt 200 ] || fail "only $files files were installed"
closed=$(find "$root/new" ! -type l ! \( -type d -perm -755 \) ! \( -type f -perm -644 \))
[ -z "$closed" ] || fail "others cannot read these: $closed"
for command in tarn-run tarn-record; do
  [ "$(stat -c %a "$root/new/prefix/bin/$command")" = 755 ] || fail "others cannot run $command"
done

# ---- Taken away ----------------------------------------------------------------------------------

uninstall
[ ! -e "$root/new" ] || fail "$(printf 'these are left:\n%s' "$(find "$root/new")")"
[[ $(uninstall) == Nothing* ]] || fail 'uninstalling twice does not say that nothing is left'

# What was there stays, empty folders and a stranger's files among them; so does what was put into a
# folder later. What was installed first, by an older version perhaps, goes too.
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
  fail 'a file that somebody put there is gone, or more than that is left'

# A tree that is packed up, and not the prefix on this machine that it is for.
mkdir -p "$root/prefix/lib"
touch "$root/prefix/lib/libtarn.so"
DESTDIR=$root/packed install_to "$root/prefix"
[ -e "$root/packed$root/prefix/lib/libtarn.so" ] || fail 'DESTDIR was ignored'
uninstall
[ ! -e "$root/packed" ] || fail 'files are left under DESTDIR'
[ -e "$root/prefix/lib/libtarn.so" ] || fail 'a file outside DESTDIR is gone'

# Who may not remove them is told so, and can try again as root.
if [ "$(id -u)" != 0 ]; then
  install_to "$root/closed"
  chmod a-w "$root/closed/lib"
  if said=$(uninstall); then fail 'files that cannot be removed are no error'; fi
  [[ $said == *'run this as root'* ]] || fail "without rights: $said"
  chmod u+w "$root/closed/lib"
  uninstall
  [ ! -e "$root/closed" ] || fail 'the second try left something'
fi
printf '%d files installed, and removed.\n' "$files"
