# shellcheck shell=bash
# SPDX-License-Identifier: MIT
# For the demos of this folder, which source it: machines with one recorder and one simulated camera each, in network namespaces that a
# bridge connects. This machine is 10.77.0.1, and machine N is 10.77.0.(10 + N). Nothing reaches this machine's own network, and no
# hardware is needed.
#
# Environment: BIN  directory with mediagrabber and camsim; default: that of the release build, otherwise the installed programs
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
bin=${BIN:-$here/../../build/release/bin}
export PATH=$bin:/usr/sbin:$PATH

# Restarts the demo in namespaces of its own.
if [ -z "${SEVERAL_MACHINES:-}" ]; then
  exec env SEVERAL_MACHINES=1 unshare --map-root-user --net bash "$0" "$@"
fi

output=${1:?usage: $0 DIRECTORY}
mkdir -p "$output"
output=$(cd "$output" && pwd)
declare -A process=() # by name

stop() { # NAME
  kill "${process[$1]}" 2>/dev/null || true
  wait "${process[$1]}" 2>/dev/null || true
  unset "process[$1]"
}

stop_all() {
  local name
  for name in "${!process[@]}"; do
    kill "${process[$name]}" 2>/dev/null || true
  done
  wait
}
trap stop_all EXIT
trap 'exit 1' INT TERM

# Starts a program, whose output goes to DIRECTORY/NAME.log. `stop NAME` and the end of the demo stop it.
start() { # NAME COMMAND...
  local name=$1
  shift
  "$@" >"$output/$name.log" 2>&1 &
  process[$name]=$!
}

# Waits until a command succeeds, for up to a minute.
wait_until() { # WHAT COMMAND...
  local what=$1 deadline=$((SECONDS + 60))
  shift
  until "$@" >/dev/null 2>&1; do
    if [ "$SECONDS" -ge "$deadline" ]; then
      printf 'timed out waiting for %s; the logs are in %s\n' "$what" "$output" >&2
      exit 1
    fi
    sleep 0.1
  done
}

wait_for_log() { # NAME TEXT
  wait_until "\"$2\" in $1.log" grep -qF -e "$2" "$output/$1.log"
}

# Runs a command on a machine. `exec` makes it the process that `start` knows.
on() { # NUMBER COMMAND...
  local number=$1
  shift
  exec env XDG_RUNTIME_DIR="$output/machine$number" nsenter --target "${process[machine$number]}" --net "$@"
}

address_of() { # NUMBER
  printf '10.77.0.%s' "$((10 + $1))"
}

has_own_network() { # PROCESS
  [ "$(readlink "/proc/$1/ns/net")" != "$(readlink /proc/$$/ns/net)" ]
}

add_machine() { # NUMBER
  local pid
  mkdir -p "$output/machine$1"
  start "machine$1" unshare --net sleep infinity
  pid=${process[machine$1]}
  wait_until "machine $1" has_own_network "$pid"
  ip link add "machine$1" type veth peer name eth0 netns "$pid"
  ip link set "machine$1" master plant up
  (on "$1" ip link set lo up)
  (on "$1" ip link set eth0 up)
  (on "$1" ip address add "$(address_of "$1")/24" dev eth0)
}

# Starts a camera and a recorder on a machine. The configuration is in DIRECTORY/machineN/run.toml, frames go to machineN/frames.
start_recorder() { # NUMBER [OPTION...] of mediagrabber run
  local number=$1 place=$output/machine$1
  shift
  start "camera$number" on "$number" camsim --limits independent --truth "$place/truth.jsonl"
  wait_for_log "camera$number" "camsim: ready"
  start "recorder$number" on "$number" mediagrabber run --config "$place/run.toml" --output "$place/frames" "$@"
}

ip link set lo up
ip link add plant type bridge
ip link set plant up
ip address add 10.77.0.1/24 dev plant
