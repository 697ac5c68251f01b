#!/usr/bin/env bash
# Usage: tests/packages_test.sh [--twice]    (not part of scripts/test: .ci/run calls it)
#
# Builds the Debian packages, installs them on a new Debian system in a temporary folder, and compiles
# and runs the README's script and an example there. Checks them with scripts/verify-release; with
# --twice that builds them twice, and compares the bytes.
set -euo pipefail
cd -- "$(dirname -- "$0")/.."

fail() {
  printf 'packages_test.sh: %s\n' "$*" >&2
  exit 1
}

twice=''
case ${1-} in
  '') ;;
  --twice) twice=yes ;;
  *) fail "unknown option: $1" ;;
esac
root=$(mktemp -d)
chmod 755 "$root"
trap 'rm -rf "$root"' EXIT

# ---- Building ------------------------------------------------------------------------------------

export DEB_BUILD_OPTIONS=nocheck
if [ "$twice" ]; then
  scripts/verify-release "$root/packages"
else
  scripts/package "$root/packages"
  scripts/verify-release --sbom "$root/packages"
  scripts/verify-release --check "$root/packages"
fi
cd "$root/packages"

# ---- Contents ------------------------------------------------------------------------------------

# The developers build the packages and do not upload them to Debian: there is no bug to close.
lintian --allow-root --display-info --fail-on error,warning,info \
  --suppress-tags initial-upload-closes-no-bugs ./*.changes

mkdir contents
for package in *.deb; do dpkg-deb -x "$package" contents; done
musl=$(uname -m)-linux-musl
for folder in usr/include "usr/include/$musl"; do
  diff -r --exclude="$musl" "$OLDPWD/include" "contents/$folder" ||
    fail "the headers in $folder differ from those in include/"
done
for name in libtarn libtarn_form libtarn_serve; do
  library=$(echo contents/usr/lib/*/"$name.so.1")
  readelf -d "$library" >dynamic
  for word in 'NEEDED.*libc\.so\.6' BIND_NOW; do
    grep -q "$word" dynamic || fail "the dynamic section of $name has no $word"
  done
  [ "$(grep -c NEEDED dynamic)" = 1 ] || fail "$name needs more than the C library"
  readelf -lW "$library" >segments
  grep -q GNU_RELRO segments || fail "$name is not read-only after relocation"
  nm -D --undefined-only "$library" >undefined
  for function in __stack_chk_fail '__[a-z]*_chk'; do
    grep -q "$function@" undefined || fail "$name was not hardened: it does not call $function"
  done
done

# ---- On a new system -----------------------------------------------------------------------------

source=$OLDPWD
awk '/^```c$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/README.md" >greet.c
call=$(sed -n 's/^\$ \(.*\.\/greet\)$/\1/p' "$source/README.md")
sed -n '/^\$ .*\.\/greet$/,/^```$/p' "$source/README.md" | sed '1d;$d' >shown
awk '/^```cpp$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/README.md" >welcome.cpp
[[ -s greet.c && -s welcome.cpp && $call && -s shown ]] || fail 'README.md has no greet.c or welcome.cpp, or does not call greet'
cp "$source/docs/examples/serve-hello.c" serve.c
cat >on-the-new-system <<END
#!/bin/sh -eu
cd /tmp
apt-get install -q -q -y --no-install-recommends -o Dpkg::Use-Pty=0 \
  \$(ls /packages/*.deb | grep -v dbgsym) >apt.log </dev/null
cc /packages/greet.c \$(pkg-config --cflags --libs tarn-form) -o greet
$call >/packages/printed
cc /packages/greet.c \$(pkg-config --cflags tarn-form) -l:libtarn_form.a -o greet-archive
${call/.\/greet/.\/greet-archive} >/packages/printed-archive
cc /usr/share/doc/tarn-doc/examples/form-echo.c -ltarn_form -ltarn -ltarn_serve -o form-echo
cc /usr/share/doc/tarn-doc/examples/form-echo.c -l:libtarn_form.a -l:libtarn.a -l:libtarn_serve.a \
  -o form-echo-archive
QUERY_STRING='a=archive' ./form-echo-archive | grep -q '<td>archive</td>'
printf 'a=1&b=x%%20y' | REQUEST_METHOD=POST CONTENT_LENGTH=11 \
  CONTENT_TYPE=application/x-www-form-urlencoded ./form-echo >/packages/printed-form
tarn-run -d 'a=1&b=x%20y' ./form-echo >/packages/printed-by-run
cc -x c - -o count \$(pkg-config --cflags --libs tarn-form) <<'C'
#include <tarn_form.h>
int main(void) {
  TarnForm *form = TarnForm_open();
  return TarnForm_load(form) && TarnForm_count(form, "b") == 2 ? 0 : 1;
}
C
QUERY_STRING='a=1&b=2&b=3' ./count
QUERY_STRING='b=x+y' tarn-form >/packages/printed-by-form
cc /packages/serve.c \$(pkg-config --cflags --libs tarn-serve) -o serve
QUERY_STRING=name ./serve >/packages/printed-by-serve
./serve --listen unix:/tmp/serve.sock & service=\$!
while [ ! -S serve.sock ]; do
  kill -0 "\$service"
  sleep 0.1
done
kill "\$service"
wait "\$service"
[ ! -e serve.sock ]
tarn-serve --version
tarn-cc -Wall -Wextra -Werror /packages/greet.c -o greet-static
${call/.\/greet/.\/greet-static} >/packages/printed-static
tarn-cc /packages/welcome.cpp -o welcome
QUERY_STRING='name=<b>' ./welcome | grep -q 'Hello, &lt;b&gt;!'
tarn-cc /usr/share/doc/tarn-doc/examples/form-echo.c -o form-echo-static
QUERY_STRING='a=static' ./form-echo-static | grep -q '<td>static</td>'
tarn-cc /packages/serve.c -o serve-static
QUERY_STRING=name ./serve-static | grep -qx 'Hello, name!'
zcat /usr/share/man/man1/tarn-cc.1.gz | grep -q 'Fl static-pie'
[ -f /lib/systemd/system/tarn-serve@.socket ]
zcat /usr/share/man/man1/tarn-serve.1.gz | grep -q 'Fl -listen'
zcat /usr/share/man/man3/Tarn_getFile.3.gz | grep -q 'Nm Tarn_getFile'
grep -q Tarn_getFile /usr/share/doc/tarn/html/c/Tarn_getFile.html
apt-get purge -q -q -y -o Dpkg::Use-Pty=0 libtarn1 libtarn-form1 libtarn-serve1 libtarn-dev \
  libtarn-musl-dev tarn-doc tarn-serve tarn-tools >apt.log </dev/null
find / -xdev -path /packages -prune -o -name '*tarn*' -print >/packages/left
END
chmod 755 on-the-new-system
# shellcheck source=/dev/null
codename=$(. /etc/os-release && printf '%s' "$VERSION_CODENAME")
export DEBIAN_FRONTEND=noninteractive
# The hooks expand "$1", the new system's folder.
# shellcheck disable=SC2016
mmdebstrap --quiet --variant=apt --format=null --include=gcc,libc6-dev,libc++-dev,pkg-config \
  --skip=cleanup/apt/lists \
  --customize-hook='mkdir "$1/packages" && cp ./*.deb greet.c welcome.cpp serve.c on-the-new-system "$1/packages"' \
  --customize-hook='chroot "$1" /packages/on-the-new-system' \
  --customize-hook='cp "$1"/packages/printed* "$1/packages/left" .' "$codename" - ||
  fail 'the packages do not work on a new system'
for printed in printed printed-archive printed-static; do
  tr -d '\r' <"$printed" | cmp - shown ||
    fail "on a new system, the README's script prints something else"
done
grep -q 'x y' printed-form || fail "$(printf 'the example printed:\n%s' "$(cat printed-form)")"
for line in 'HTTP/1.1 200 OK' '.*x y.*'; do
  grep -qx "$line" printed-by-run ||
    fail "$(printf 'tarn-run printed:\n%s' "$(cat printed-by-run)")"
done
grep -qx 'Hello, name!' printed-by-serve ||
  fail "$(printf 'the server\047s example printed:\n%s' "$(cat printed-by-serve)")"
[ "$(tail -n 1 printed-by-form)" = '{"end": true}' ] ||
  fail "$(printf 'tarn-form printed:\n%s' "$(cat printed-by-form)")"
[ ! -s left ] ||
  fail "$(printf 'these files are left after removing the packages:\n%s' "$(cat left)")"
printf 'The packages %spass lintian and work on a new %s.\n' "${twice:+are reproducible, }" "$codename"
