#!/bin/bash
# Usage: nginx_test.sh INSTALLED README
#
# Runs the README's commands for nginx word for word, and compares the page with the one that it shows.
# nginx runs as Debian installs it, but in namespaces of its own, with copies of the folders that
# change. Ends with status 77 if the system does not allow that.
set -euo pipefail

if [ -z "${TARN_INSIDE-}" ]; then
  new=(unshare --mount --net --pid --fork --mount-proc --kill-child)
  if [ "$(id -u)" != 0 ] || ! "${new[@]}" mount -t tmpfs test /mnt 2>/dev/null; then
    echo 'Only root can run this, and only where mounting is allowed.'
    exit 77
  fi
  folder=$(mktemp -d)
  trap 'rm -rf "$folder"' EXIT
  chmod 755 "$folder"
  TARN_INSIDE=$folder "${new[@]}" bash "$0" "$@"
  exit
fi

installed=$1 readme=$2
cd "$TARN_INSIDE"
ip link set lo up
cp -R /etc/nginx nginx
mount --bind nginx /etc/nginx
for changed in /run /var/log/nginx /var/lib/nginx; do mount -t tmpfs test "$changed"; done

# Prints the blocks of one language in the part of the README that begins with this heading.
blocks() {
  awk -v heading="## $1" -v fence="\`\`\`$2" '
    /^## / { part = $0 == heading }
    /^```$/ { inside = 0 }
    inside { print }
    part && $0 == fence { inside = 1 }' "$readme"
}
blocks 'A first script' c >greet.c
blocks 'Under nginx in two minutes' sh >commands
blocks 'Under nginx in two minutes' html >shown
for file in greet.c commands shown; do
  [ -s "$file" ] || { echo "README.md has no $file" && exit 1; }
done

# The packages are installed, and root needs no sudo.
cat >run <<'END'
set -e
sudo() { "$@"; }
apt-get() { echo "apt-get $*"; }
. ./commands
END
C_INCLUDE_PATH=$installed/include LIBRARY_PATH=$installed/lib LD_LIBRARY_PATH=$installed/lib \
  PKG_CONFIG_PATH=$installed/lib/pkgconfig bash run >printed
tail -n "$(wc -l <shown)" printed | diff shown - || { cat printed && exit 1; }
# Otherwise each child would look up the functions that it calls.
[[ $(readelf -d greet-serve) == *BIND_NOW* ]] || { echo 'greet-serve is linked lazily.' && exit 1; }
echo 'nginx serves the page.'
