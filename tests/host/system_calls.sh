#!/usr/bin/env bash
# Counts the system calls of a round trip: exactly one receive and one send on each side, and hardly any
# by other threads.
#
#   system_calls.sh STRACE PROGRAM tcp|unix buffered|framed|tls call|batch
#
# Exit status 77: the system does not allow tracing processes, so nothing was counted.
set -euo pipefail

strace=$1 program=$2 family=$3 layer=$4 kind=$5
first=50 # round trips that are not counted: making the connection is part of them
counted=200

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT

if ! "$strace" -f -o "$directory/probe" true 2>"$directory/error"; then
    echo "Not run: strace cannot trace processes: $(<"$directory/error")"
    exit 77
fi

address=127.0.0.1:0
if [[ $family == unix ]]; then
    address=unix:$directory/socket
fi
coproc SERVER { "$strace" -f -o "$directory/server" "$program" serve "$address" "$layer"; }
server=$SERVER_PID
read -r address certificate <&"${SERVER[0]}"
"$strace" -f -o "$directory/client" "$program" "$kind" "$address" "$layer" $((first + counted)) \
    ${certificate:+"$certificate"}
echo >&"${SERVER[1]}"
wait "$server"

# The system calls of one side, as lines of "NAME COUNT": those of the sending thread, after its first
# sends and up to its last. Occasional calls for memory and locks are not counted.
cost() {
    awk -v first="$first" -v counted="$counted" '
        match($0, /^[0-9]+ +[a-z_0-9]+\(/) {
            name = substr($0, 1, RLENGTH - 1)
            sub(/^[0-9]+ +/, "", name)
            sub(/^recvfrom$/, "recv", name)
            sub(/^sendto$/, "send", name)
            if (name == "send") {
                # Over TLS, the thread of a connection without calls also sends, before.
                if ($1 != sender && sends < first) { sender = $1; sends = 0 }
                if ($1 != sender) count["send by another thread"]++
                if (++sends == first) next
            }
            # Over TLS, ending a connection is a send, too.
            if (sends < first || sends > first + counted) next
            if ($1 == sender) since[name]++
            else others++
            if (name == "send" && $1 == sender) {
                for (name in since) count[name] += since[name]
                split("", since)
                othersUpToHere = others
            }
        }
        END {
            for (name in count) {
                if (name ~ /^(brk|mmap|mmap2|munmap|mprotect|madvise|futex)$/) continue
                # A time-out is set again if the machine was so slow that it no longer fits.
                if (name == "setsockopt" && count[name] < counted / 2) continue
                print name, count[name]
            }
            # They may still be busy with the connection, but not with each call.
            if (othersUpToHere >= counted / 10) print "by other threads", othersUpToHere
        }' "$1" | sort
}

for side in server client; do
    measured=$(cost "$directory/$side")
    if [[ $measured != "$(printf 'recv %d\nsend %d' "$counted" "$counted")" ]]; then
        echo "$counted round trips cost the $side:"
        echo "$measured"
        exit 1
    fi
done
