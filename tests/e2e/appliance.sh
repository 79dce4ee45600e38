#!/bin/sh
# From inside of an appliance nothing of the machine can be changed, and what the project and its tests need works.
#
# usage: appliance.sh APPLIANCE IMAGE
set -eu
folder=$(mktemp -d -p .)
trap 'rm -rf "$folder"' EXIT
cat >"$folder/inside" <<'END'
set -eu
cd "$1"
fail() { echo "$*"; exit 1; }

# It may all be replaced, or cannot be; never tried on the machine's own.
[ "$(stat -c %d /dev)" != "$3" ] || fail "/dev is the machine's"
rm -f /dev/null 2>/dev/null && echo x >/dev/null
chmod 600 /dev/zero 2>/dev/null || :
[ "$(find /dev/ -type b -o -type c ! -path '/dev/pts/*' | wc -l)" -le 6 ] || fail "devices: $(ls /dev)"
for place in / /*; do
    case $place in
        / | /dev | /etc | /proc | /run | /tmp | /var | /vemra | /mnt) continue ;;
    esac
    [ -d "$place" ] && [ ! -L "$place" ] || continue
    ! touch "$place/ostrel-appliance" 2>/dev/null || { rm "$place/ostrel-appliance" && fail "$place is writable"; }
done
for setting in kernel/core_pattern vm/swappiness fs/file-max; do
    [ ! -e /proc/sys/$setting ] || ! sh -c "cat /proc/sys/$setting >/proc/sys/$setting" 2>/dev/null ||
        fail "$setting is writable"
done

# The working folder, the project, devices, terminals.
touch written
touch "$2/tests/written" && rm "$2/tests/written"
[ "$(head -c 3 /dev/urandom | wc -c)" = 3 ]
[ "$(script -qec tty /tmp/typescript | tr -d '\r')" = /dev/pts/0 ] || fail "no terminal"
echo x >/dev/shm/shared
echo through | cat /dev/fd/0 /dev/stdin | grep -q through
hostname appliance
END
inode=$(stat -c '%i %a %F' /dev/null /dev/zero)
name=$(hostname)
"$1" "$2" sh "$folder/inside" "$folder" "$(cd "$(dirname "$1")/.." && pwd -P)" "$(stat -c %d /dev)"
[ -e "$folder/written" ]
[ "$(stat -c '%i %a %F' /dev/null /dev/zero)" = "$inode" ]
[ "$(hostname)" = "$name" ]
