# What the scripts inside an appliance share; for bash, to be sourced.

export PATH=/vemra/bin:$PATH
log=/var/log/ostrel.log

# waitFor CONDITION [ARGUMENT...]: until the command succeeds; fails after about 10 s.
waitFor() {
    local end=$((SECONDS + 10))
    until "$@" >/dev/null 2>&1; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.02
    done
}

daemonServes() { ostrelCtl count host; }
daemonEnded() { ! kill -0 "$daemon" 2>/dev/null; }
daemonServesOrEnded() { daemonServes || daemonEnded; }

# Returns when the daemon serves. Sets daemon to its process id; it is a child of the script.
startDaemon() {
    ostrelServer --debug --verbose --log "$log" &
    daemon=$!
    waitFor daemonServesOrEnded && daemonServes >/dev/null
}
