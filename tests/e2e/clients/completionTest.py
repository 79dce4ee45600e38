"""Types command lines in a real bash, lets it complete them, and looks at the arguments that come out."""

import os
import pty
import subprocess

DEFAULTS = """lan.domain String "lan"\nv[1] Byte 1\nv[2] Byte 1\n"my $key" Byte 1\n"a:b it's" Byte 1
wifi[3] instance wlan "net"\nwifi[4] instance wlan "net"\n"""
PREPARE = r"""PS1= HISTFILE=; stty -echo; cd "$(mktemp -d)"; touch changes.txt
. /vemra/share/bash-completion/completions/ostrelCtl; ostrelCtl() { printf '<%s>' "$@"; echo .; }
bind 'set enable-bracketed-paste off'; bind '"*": insert-completions'; echo 'READ''Y.'
"""
# A tab completes, a star inserts all that is possible.
LINES = {
    "rem*": "<remove><remove-owner>", "get la\t": "<get><lan.domain>", "apply ch\t": "<apply><changes.txt>",
    "--timeout 5 set lan.domain I\t": "<--timeout><5><set><lan.domain><IP>", "erase v\t": "<erase><v>",
    "set lan.domain --ch\t S\t": "<set><lan.domain><--check><String>", "list *": "<list><v><wifi>", "watch --ow\t x v\t": "<watch><--owner><x><v>",
    "new w\tw\tw\t": "<new><wlan><wifi><w>", "remove w*": "<remove><wifi[3]><wifi[4]>",
    # Names are quoted as the line needs it.
    "get m\t": "<get><my $key>", "get my\\ \\$\t": "<get><my $key>", 'get "my\t': "<get><my $key>",
    "get 'a:b\t": "<get><a:b it's>", "get a:b\t": "<get><a:b it's>", "set 'v[2\t": "<set><v[2]>",
    # A member has two names, and goes on as it was begun.
    "get wifi[4\t": "<get><wifi[4].ssid>", "get wifi.*": "<get><wifi.ssid[3]><wifi.ssid[4]>",
    "get wifi[*": "<get><wifi[3].ssid><wifi[4].ssid>", "erase wifi*": "<erase><wifi>", "watch wif\t": "<watch><wifi.ssid>",
    "set v*": "<set><v[><v[1]><v[2]>", "set v[*": "<set><v[1]><v[2]>",
    # Nothing to offer, nothing said.
    "get none\t": "<get><none>", "shutdown l\t": "<shutdown><l>",
}


def until(end):
    seen = b""
    while not seen.endswith(end):
        seen += os.read(terminal, 1)
    return seen.decode()


def check(line, arguments):
    os.write(terminal, f"ostrelCtl {line}\n".encode())
    found = until(b".\r\n").splitlines()[-1]
    assert found == arguments + ".", f"{line!r} became {found}"


for name, text in ("Dflt", DEFAULTS), ("Tmplt", '[wlan]\nssid String "home"\n'):
    with open(f"/vemra/default/ostrDb{name}.txt", "w", encoding="utf-8") as file:
        file.write(text)
child, terminal = pty.fork()
if child == 0:
    os.environ.update(PATH="/vemra/bin:" + os.environ["PATH"], TERM="dumb", LC_ALL="C.UTF-8")
    os.execvp("bash", ["bash", "--norc", "--noprofile", "-i"])
os.write(terminal, PREPARE.encode())
until(b"READY.\r\n")
for line, arguments in LINES.items():
    check(line, arguments)
subprocess.run(["mv", "/vemra/bin/ostrelDbTool", "/tmp"], check=True)
check("get l\t", "<get><l>")
