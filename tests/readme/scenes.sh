# shellcheck shell=bash
# What the pages' examples are about, made by functions: the page says what happened, these let it happen.
# Every session of pages.py reads this file first. Processes end with its process namespace.

ip link set lo up
mkdir -p "$FOLDER/man/man1" && cp "$SOURCES"/docs/man/*.1 "$FOLDER/man/man1"
export MANPATH=$FOLDER/man PAGER=cat

# until COMMAND: waits for it to succeed, five seconds at most.
until_true() {
  local i
  for ((i = 0; i < 100; i++)); do
    if "$@" >/dev/null 2>&1; then return 0; fi
    sleep 0.05
  done
  echo "never true: $*"
  return 1
}
queue_is_there() { ipcs -m | grep -q "^0xabbd000e"; }

# logger_start [OPTION...]: a logger in the background, whose number is in LOGGER.
logger_start() {
  logger "$@" >"$FOLDER/logger" 2>&1 &
  LOGGER=$!
  until_true grep -q "is there" "$FOLDER/logger"
}
# A logger that was killed has left its queue.
logger_killed() {
  logger_start "$@" && kill -9 "$LOGGER"
  wait "$LOGGER" 2>/dev/null || true
}
# sensor_start N: a sensor in the background, whose number is in SENSOR.
sensor_start() {
  sensor --sensor "$1" --period 200 >"$FOLDER/sensor" 2>&1 &
  SENSOR=$!
  until_true grep -q "sending" "$FOLDER/sensor"
}
# A sender of queue 7 took the mutex and died. Two that were there before wait for it.
sender_dies() {
  python3 - <<'EOF'
import ctypes
libc = ctypes.CDLL(None)
take = (ctypes.c_short * 3)(0, -1, 0)
assert libc.semop(libc.semget(ctypes.c_int(0xABBD000F), 1, 0), take, ctypes.c_size_t(1)) == 0
EOF
}
# segment_of_another KEY SIZE: a segment that is no queue's.
segment_of_another() {
  python3 -c "import ctypes; assert ctypes.CDLL(None).shmget(ctypes.c_int($1), ctypes.c_size_t($2), 0o1664) >= 0"
}
# interface NAME ADDRESS...: an interface that is up and can multicast, with a partner in this namespace.
interface() {
  ip link add "$1" type veth peer name "$1-far" && ip link set "$1-far" up && ip link set "$1" up || return
  local name=$1
  shift
  while [[ $# -gt 0 ]]; do ip addr add "$1/24" dev "$name" && shift || return; done
}
# other_host INTERFACE ADDRESS: another host, called vm, on whose side INTERFACE has its partner. What it runs
# is run by on_other_host.
other_host() {
  unshare --uts --net sleep 60 &
  OTHER=$!
  until_true sh -c "[ \"\$(readlink /proc/$OTHER/ns/net)\" != \"\$(readlink /proc/self/ns/net)\" ]" || return
  ip link set "$1-far" netns "$OTHER" && on_other_host hostname vm && on_other_host ip link set lo up &&
    on_other_host ip addr add "$2/24" dev "$1-far" && on_other_host ip link set "$1-far" up
}
on_other_host() { nsenter -t "$OTHER" -u -n "$@"; }

# What stands around the commands in the text of a page.
inline_scene() {
  [[ -e VORN_PEER_HOSTS ]] || echo "127.0.0.1 10.1.0.0/ffff0000" >VORN_PEER_HOSTS
  [[ -e /sys/class/net/inline0 ]] || interface inline0 10.1.0.1
  [[ ! -e $FOLDER/programs/logger ]] || queue_is_there || logger_start --take-over
}
