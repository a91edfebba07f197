#!/usr/bin/env bash
# Shows the library at work, without a card: powers a simulated one, lets three applications receive from it on
# three channels for about ten seconds, and checks that each got exactly what the card sent it.
set -euo pipefail
cd "$(dirname "$0")/.."

readonly card=0
readonly scenario=config/demo.toml
readonly bin=$PWD/build/release/bin

fail() {
  printf 'demo: %s\n' "$*" >&2
  exit 1
}

say() {
  if [[ -t 1 ]]; then
    printf '\n\033[1m%s\033[0m\n' "$*"
  else
    printf '\n%s\n' "$*"
  fi
}

build() {
  ./scripts/bootstrap.sh build
  cmake --preset release -DKOVA_BUILD_TESTS=OFF >/dev/null
  cmake --build --preset release --target kova-simcard kova-quotes
}

# card_says FILTER: what jq makes of the card's status.
card_says() {
  "$bin/kova-simcard" status --card "$card" --json 2>/dev/null | jq -e -r "$1"
}

# wait_until SECONDS WHAT COMMAND...: until the command succeeds; fails when it takes longer, and at once when
# one of our processes has died.
wait_until() {
  local seconds=$1 what=$2 process
  shift 2
  local deadline=$((SECONDS + seconds))
  until "$@" >/dev/null 2>&1; do
    ((SECONDS < deadline)) || fail "$what: not after $seconds seconds"
    for process in "${processes[@]}"; do
      kill -0 "$process" 2>/dev/null || fail "$what: a process ended too early; its log: $(cat "$scratch"/*.err)"
    done
    sleep 0.1
  done
}

power_on() {
  "$bin/kova-simcard" run --card "$card" --prepared --scenario "$scenario" \
    >"$scratch/card.out" 2>"$scratch/card.err" &
  processes+=($!)
  wait_until 60 "powering the card" card_says '.state == "on"'
}

# receive CHANNEL: one application of its own; its quotes come out on standard output.
receive() {
  local channel=$1
  cat >"$scratch/channel$channel.ini" <<INI
[config]
device = xilinx$card:$channel
cpucore = -1
log_level = 7
log_path = $scratch
INI
  "$bin/kova-quotes" --config "$scratch/channel$channel.ini" --idle sleep --format table \
    --summary "$scratch/channel$channel.json" 2>"$scratch/channel$channel.err" &
  processes+=($!)
  receivers+=($!)
}

all_heard() {
  card_says '.traffic == "ended" and ([.channels[] | select(.open)] | all(.waiting == 0))'
}

# show CHANNEL: the last of its quotes, when they went into a file, and what the receiver says at its end.
show() {
  local quotes=$scratch/channel$1.quotes
  say "Channel $1"
  if [[ -s $quotes ]]; then
    head -n 1 "$quotes"
    tail -n 5 "$quotes"
  fi
  # The library's own lines begin with their colour.
  grep -v $'^\033' "$scratch/channel$1.err" || true
}

# judge CHANNEL: whether the receiver got exactly what the card sent it.
judge() {
  local sent lost got gaps
  sent=$(card_says ".channels[] | select(.channel == $1) | .sent")
  lost=$(card_says ".channels[] | select(.channel == $1) | .lost")
  got=$(jq -r .channel_quotes "$scratch/channel$1.json")
  gaps=$(jq -r '.gaps + .backward' "$scratch/channel$1.json")
  printf 'channel %s: the card sent %s quotes and lost %s; the receiver got %s, with %s gaps in their numbers\n' \
    "$1" "$sent" "$lost" "$got" "$gaps"
  [[ $sent -gt 0 && $lost -eq 0 && $got -eq $sent && $gaps -eq 0 ]]
}

clean_up() {
  local process
  for process in $(jobs -rp); do
    kill -TERM "$process" 2>/dev/null || true
  done
  wait
  rm -rf "$scratch"
}

build
! card_says '.state == "on"' >/dev/null 2>&1 ||
  fail "simulated card $card is on already; power it off first: $bin/kova-simcard off --card $card"

scratch=$(mktemp -d "${TMPDIR:-/tmp}/kova-demo.XXXXXX")
processes=()
receivers=()
trap clean_up EXIT

say "Powering simulated card $card: the full listing of both exchanges, ten seconds of traffic"
power_on

say 'Three receivers; on a terminal, the quotes of channel 1 as they come'
if [[ -t 1 ]]; then
  receive 1
else
  receive 1 >"$scratch/channel1.quotes"
fi
receive 2 >"$scratch/channel2.quotes"
receive 3 >"$scratch/channel3.quotes"
wait_until 90 'every quote taken' all_heard

result=0
for receiver in "${receivers[@]}"; do
  kill -INT "$receiver"
  wait "$receiver" || result=1
done
for channel in 1 2 3; do
  show "$channel"
done
say 'What the card says'
for channel in 1 2 3; do
  judge "$channel" || result=1
done

say 'Powering off'
"$bin/kova-simcard" off --card "$card"
[[ $result -eq 0 ]] || fail 'a receiver did not get exactly what the card sent it'
say 'Every receiver got exactly what the card sent it.'
