#!/usr/bin/env bash
# Runs filecast as real processes between two network namespaces: filecast_test.sh FILECAST
set -uo pipefail

if [[ ${2:-} != inside ]]; then
  for namespace in "unshare -n -m" "unshare -Urnm"; do
    $namespace ip link add fc0 type veth peer name fc1 2>/dev/null &&
      exec $namespace "$0" "$1" inside
  done
  echo "skipped: no network namespace with a veth pair may be made here"
  exit 77
fi

filecast=$(realpath "$1")
page=$(realpath "$(dirname "$0")/../../docs/filecast.md")
failures=0
folder=$(mktemp -d)
unshare -n sleep 110 &
holder=$!
trap 'kill "$holder" $(jobs -p) 2>/dev/null; wait; umount "$folder"/disk* 2>/dev/null; rm -rf "$folder"' EXIT
trap 'exit 1' INT TERM
for ((i = 0; i < 200; i++)); do
  [[ $(readlink "/proc/$holder/ns/net") == "$(readlink /proc/self/ns/net)" ]] || break
  sleep 0.02
done
there=(nsenter -t "$holder" -n)
ip link add fc0 type veth peer name fc1 && ip link set fc1 netns "$holder" || exit 1
ip addr add 10.77.0.1/24 dev fc0 && ip link set fc0 up
for host in 2 3 4 66; do "${there[@]}" ip addr add 10.77.0.$host/24 dev fc1; done
"${there[@]}" ip link set fc1 up
head -c 3000001 /dev/urandom >"$folder/data"
cd "$folder" || exit 1

check() { # WHAT COMMAND...: the command succeeds
  local what=$1
  shift
  "$@" || {
    echo "FAILED: $what"
    failures=$((failures + 1))
  }
}
code_is() { # WHAT CODE EXPECTED
  check "$1: exit code $2, expected $3" test "$2" -eq "$3"
}
recv() { "${there[@]}" "$filecast" recv "$@" --wait 20 >>recv.log 2>&1; }
send() { "$filecast" send "$@" >send.log 2>&1; }
send_begin() { # ARGUMENT...: what the sender before it has shown is gone when this returns
  : >send.log
  "$filecast" send "$@" >>send.log 2>&1 &
  sending=$!
}
await_quarter() { # until the sender shows that it has sent 25 % or more
  for ((i = 0; i < 500; i++)); do
    grep -q 'sent [2-9]' send.log && break
    sleep 0.02
  done
}

# Three receivers with losses; an old copy is replaced, and nothing else is left.
mkdir r1 r2 r3 r4
echo old >r1/data
pids=()
for r in 1 2 3; do
  recv r$r --from 10.77.0.$((r + 1)) --drop 0.05 --seed $r &
  pids+=($!)
done
recv r4 --from 10.77.0.66 --drop 0.3 &
uninvited=$!
echo "10.77.0.2 no-such-host.invalid 10.77.0.3 10.77.0.4/ffffffff" >VORN_PEER_HOSTS
send data --peers --receivers 3 --drop 0.01
code_is "three receivers" $? 0
for pid in "${pids[@]}"; do wait "$pid"; code_is "receiver" $? 0; done
for r in 1 2 3; do
  check "copy $r is the same" cmp data r$r/data
  check "nothing else is left in r$r" test "$(ls -A r$r)" = data
done
wait "$uninvited"
code_is "uninvited receiver" $? 16
check "the uninvited has nothing" test -z "$(ls -A r4)"
check "refusals are counted" grep -Eq ' [1-9][0-9]* refused' send.log
check "the unusable entry is named" grep -q 'file VORN_PEER_HOSTS, entry 2.*"no-such-host.invalid"' send.log
rm VORN_PEER_HOSTS
ln -s VORN_PEER_HOSTS VORN_PEER_HOSTS  # nobody can open that, root neither
VORN_PEER_HOSTS=10.77.0.2 send data --peers
code_is "list file that cannot be opened" $? 8
rm VORN_PEER_HOSTS
printf '10.77.0.%d ' {100..550} >VORN_PEER_HOSTS
send data --peers
code_is "list that is cut off" $? 8
rm VORN_PEER_HOSTS
VORN_PEER_HOSTS=no-such-host.invalid send data --peers
code_is "list that names nobody" $? 8
VORN_PEER_HOSTS=192.168.0.0/ffff0000 send data --peers
code_is "no interface in the listed subnets" $? 5

# What is wrong from the start.
send missing; code_is "file missing" $? 3
send data --rate x; code_is "wrong option" $? 2
recv r4 --from 10.99.0.1; code_is "no address of this host" $? 7
check "the option at fault is named" grep -q -- '--from: cannot use 10.99.0.1: this host' recv.log
recv nowhere; code_is "folder missing" $? 4
"${there[@]}" "$filecast" recv r4 --at 10.77.0.66:7500 >>recv.log 2>&1 &
holds_port=$!
check "the port is taken" "${there[@]}" bash -c 'for ((i = 0; i < 200; i++)); do
  ss -Huln sport = 7500 | grep -q . && exit 0; sleep 0.02; done; exit 1'
recv r4 --at 10.77.0.66:7500; code_is "port in use" $? 6
kill "$holds_port"; wait "$holds_port"
code_is "interrupted while it waits" $? 17
send data --wait 0.3; code_is "nobody there" $? 9

# A refusal comes before the transfer, and says why.
mkdir -p disk1 disk2 disk3 taken/data
mount -t tmpfs -o size=1m none disk1
recv disk1 & full=$!
recv taken & taken=$!
send data --receivers 2; code_is "sender that all refuse" $? 10
wait "$full"; code_is "disk too small" $? 12
wait "$taken"; code_is "name taken by a folder" $? 18
check "a small disk is told" grep -q 'failed: no room for the received file' send.log
check "a taken name is told" grep -q 'failed: a folder has the name of the received file' send.log
check "nothing is sent in vain" grep -q ' 0 samples, of them 0 repairs' send.log
check "the plural is right" grep -q '2 receivers do not have the file' send.log

# One disk becomes full, one receiver is killed, one interrupted; only the last one gets its file.
mount -t tmpfs -o size=5m none disk2
mount -t tmpfs none disk3
echo old >r2/data
recv r1 & whole=$!
recv disk2 & full=$!
# Without its descriptors in /proc this one can link no file, so the file has a hidden name.
"${there[@]}" unshare -m sh -c 'mount -t tmpfs none "/proc/$$/fd" && exec "$0" recv r2' "$filecast" >>recv.log 2>&1 & interrupted=$!
"${there[@]}" "$filecast" recv disk3 >>recv.log 2>&1 & killed=$!
send_begin data --receivers 4 --rate 1 --patience 5
await_quarter
head -c 4m /dev/zero >disk2/other
check "a file without a link has a hidden name" test "$(ls -A r2 | wc -l)" -eq 2
check "any other has no name" test -z "$(ls -A disk3)"
kill -KILL "$killed"
kill -TERM "$interrupted"
wait "$interrupted"; code_is "interrupted receiver" $? 17
check "an interrupted receiver leaves the old file alone" test "$(cat r2/data)" = old
check "an interrupted receiver leaves nothing else" test "$(ls -A r2)" = data
check "a killed receiver leaves nothing" test -z "$(ls -A disk3)"
wait "$full"; code_is "disk full" $? 12
check "nothing stays on a full disk" test "$(ls -A disk2)" = other
wait "$whole"; code_is "the other receiver" $? 0
wait "$sending"; code_is "sender with a lost receiver" $? 10
check "the other copy is the same" cmp data r1/data
check "a full disk is told" grep -q 'failed: no room for the received file' send.log
check "an interrupted receiver is told" grep -q 'failed: ended by a signal' send.log
check "a lost receiver is named" grep -q 'lost: it fell silent' send.log

# The only receiver is interrupted: the sender ends at once. So do receivers of a file that shrinks.
# Their patience is longer than this test may take.
"${there[@]}" "$filecast" recv r1 >>recv.log 2>&1 & interrupted=$!
send_begin data --rate 0.5 --patience 300
await_quarter
kill -INT "$interrupted"; wait "$interrupted"
wait "$sending"; code_is "sender of an interrupted receiver" $? 10
check "the interruption is told" grep -q 'failed: ended by a signal' send.log
check "the singular is right" grep -q '1 receiver does not have the file' send.log
check "only what was carried counts" grep -Eq ': [01][.][0-9] MB in' send.log
cp data shrinking
recv r1 --patience 300 & told=$!
send_begin shrinking --rate 0.5 --name other
await_quarter
truncate -s 100 shrinking
wait "$sending"; code_is "sender of a file that shrinks" $? 11
wait "$told"; code_is "receiver of a file that shrinks" $? 16
check "the reason is told" grep -q 'other: the sender gave up: the file became shorter' recv.log

# An address that cannot be reached holds up nobody else.
recv r1 --at 10.77.0.2 & whole=$!
send data --to 10.99.0.1 --to 10.77.0.2 --rate 2 --patience 5
code_is "sender with one address out of reach" $? 0
wait "$whole"; code_is "the receiver in reach" $? 0

# A sender that is interrupted says so.
recv r1 & told=$!
send_begin data --rate 0.5
await_quarter
kill -TERM "$sending"
wait "$sending"; code_is "interrupted sender" $? 17
wait "$told"; code_is "receiver of an interrupted sender" $? 16
check "the reason is told" grep -q 'the sender was interrupted' recv.log

for name in $("$filecast" --help | sed -n 's/^ *[0-9]* \([A-Z_]*\) .*/\1/p'); do
  check "$name is in docs/filecast.md" grep -q "\`$name\`" "$page"
done
options=$("$filecast" send --help; "$filecast" recv --help)
while IFS='|' read -r option low high standard; do
  check "the limits and default of $option are in docs/filecast.md" \
    grep -Eq "^\| \`$option N\` \| [a-z]+ \| $standard \| $low to $high \|" "$page"
done < <(sed -n 's/^ *\(--[a-z]*\) N .*(\([^ ]*\) to \(.*\), default \(.*\))$/\1|\2|\3|\4/p' <<<"$options")
for option in $(grep -o '^ *--[a-z]*' <<<"$options"); do
  check "$option is in docs/filecast.md" grep -q "^| \`$option[ \`]" "$page"
done
if [[ $failures -gt 0 ]]; then
  tail -n 50 recv.log send.log
  exit 1
fi
echo "all as expected"
