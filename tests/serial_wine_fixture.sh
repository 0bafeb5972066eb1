#!/bin/sh
# Under Wine the serial tests need a line to talk over: a null-modem pair of pseudo-terminals
# whose slave ends Wine sees as COM42 (the port under test) and COM43 (the far end).
#   serial_wine_fixture.sh start|stop <state file>
# Without socat nothing is linked, and the tests that need the line skip themselves.
set -u
dosdevices="${WINEPREFIX:-$HOME/.wine}/dosdevices"
state="$2"
case "$1" in
start)
    command -v socat >/dev/null 2>&1 || { echo "socat missing: no COM42"; exit 0; }
    mkdir -p "$dosdevices"
    rm -f "$dosdevices/com42" "$dosdevices/com43"
    # Detached, with no descriptor of ctest's, so that ctest does not wait for it.
    setsid socat pty,raw,echo=0,link="$dosdevices/com42" pty,raw,echo=0,link="$dosdevices/com43" \
            </dev/null >/dev/null 2>&1 &
    echo $! >"$state"
    for _ in $(seq 50); do
        [ -e "$dosdevices/com42" ] && [ -e "$dosdevices/com43" ] && exit 0
        sleep 0.1
    done
    echo "socat made no pty pair" >&2
    exit 1
    ;;
stop)
    [ -f "$state" ] && kill "$(cat "$state")" 2>/dev/null
    rm -f "$state" "$dosdevices/com42" "$dosdevices/com43"
    exit 0
    ;;
esac
exit 2
