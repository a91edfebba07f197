#!/usr/bin/env bash
# Shows the library at work, without a card: powers a simulated one, lets one application bring it up on channel 0
# and three more receive from it, has the card lose a packet, from which channel 0 recovers while the others stay,
# and checks that each got exactly what the card sent it. Takes less than a minute and a half.
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
  "$bin/kova-simcard" run --card "$card" --scenario "$scenario" \
    >"$scratch/card.out" 2>"$scratch/card.err" &
  processes+=($!)
  wait_until 60 "powering the card" card_says '.state == "on"'
}

# configure CHANNEL: channel 0 says for all of them what they receive.
configure() {
  cat <<INI
[config]
device = xilinx$card:$1
cpucore = -1
log_level = 7
log_path = $scratch
INI
  [[ $1 -eq 0 ]] || return 0
  cat <<INI
shfe2ps = enabled
ine2ps = enabled

[channel0]
insts = all
options = recv

[channel1]
insts = au,ag,cu
options = norecv

[channel2]
insts = rb,hc,ss
options = recv

[channel3]
insts = fu,bu,sc,lu
options = norecv
INI
}

# receive CHANNEL: one application of its own; its quotes come out on standard output.
receive() {
  local channel=$1
  configure "$channel" >"$scratch/channel$channel.ini"
  "$bin/kova-quotes" --config "$scratch/channel$channel.ini" --idle sleep --format table \
    --summary "$scratch/channel$channel.json" 2>"$scratch/channel$channel.err" &
  processes+=($!)
  receivers+=($!)
}

# tell WORDS...: what the program that powers the card is told, and its answer.
tell() {
  "$bin/kova-simcard" tell --card "$card" "$@"
}

# watch_bring_up N: the steps of the N-th bring-up as the card sees them.
watch_bring_up() {
  wait_until 30 'the initialisation' card_says ".registers.hbm2_status == 0 and .registers.init_trigger == 1 and
    .cores.shfe_2ps == \"stopped\""
  printf '  the card is being initialised; the library gives its memory six seconds\n'
  wait_until 30 'the snapshot' card_says ".forwarding.openings == $1"
  printf '  its memory is ready; the exchange sends its snapshot through it\n'
  wait_until 60 'the start of the feeds' card_says '.cores.shfe_2ps == "started" and .cores.shfe_4ps == "started"'
  printf '  %s SHFE and %s INE instruments are in its tables; its feeds have started\n' \
    "$(card_says .tables.shfe_2ps.filled)" "$(card_says .tables.ine_2ps.filled)"
}

# has_taken CHANNEL QUOTES
has_taken() {
  card_says ".channels[$1].taken >= $2"
}

all_heard() {
  card_says '[.channels[] | select(.open)] | all(.waiting == 0)'
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
  local sent lost got backward
  sent=$(card_says ".channels[$1].sent")
  lost=$(card_says ".channels[$1].lost")
  got=$(jq -r .channel_quotes "$scratch/channel$1.json")
  backward=$(jq -r .backward "$scratch/channel$1.json")
  printf 'channel %s: the card sent %s quotes and lost %s; the receiver got %s\n' "$1" "$sent" "$lost" "$got"
  [[ $sent -gt 0 && $lost -eq 0 && $got -eq $sent && $backward -eq 0 ]]
}

# judge_manager: channel 0 gets frames of the snapshot and events too, and passes over the quotes that come between
# the lost packet and the card's reset.
judge_manager() {
  local sent lost frames events got passed
  sent=$(card_says '.channels[0].sent')
  lost=$(card_says '.channels[0].lost')
  frames=$(card_says .forwarding.forwarded)
  events=$(card_says .registers.event_pkts)
  got=$(jq -r .channel_quotes "$scratch/channel0.json")
  passed=$((sent - frames - events - got))
  printf 'channel 0: the card sent %s messages and lost %s: %s frames, %s events, %s quotes that the receiver got, ' \
    "$sent" "$lost" "$frames" "$events" "$got"
  printf 'and %s that came while it began to recover\n' "$passed"
  [[ $got -gt 0 && $lost -eq 0 && $passed -ge 0 && $passed -lt 1000 ]]
}

# note_instrument_file: a bring-up that begins now writes this half-day's; the demo's own, unless it has been there.
note_instrument_file() {
  local day hour
  read -r day hour < <(date '+%Y%m%d %H')
  instrument_file=/tmp/.shfe_${day}_$([[ $((10#$hour)) -lt 17 ]] && echo am || echo pm)
  [[ -e $instrument_file ]] || own_instrument_files+=("$instrument_file")
}

# show_instrument_file: what channel 0 has written beside its quotes, and its first lines.
show_instrument_file() {
  [[ $instrument_file -nt $scratch/begin ]] || fail 'channel 0 wrote no instrument file'
  printf '%s, %s lines:\n' "$instrument_file" "$(wc -l <"$instrument_file")"
  head -n 3 "$instrument_file"
}

clean_up() {
  local process
  for process in $(jobs -rp); do
    kill -TERM "$process" 2>/dev/null || true
  done
  wait
  rm -rf "$scratch" "${own_instrument_files[@]}"
}

build
! card_says '.state == "on"' >/dev/null 2>&1 ||
  fail "simulated card $card is on already; power it off first: $bin/kova-simcard off --card $card"

scratch=$(mktemp -d "${TMPDIR:-/tmp}/kova-demo.XXXXXX")
processes=()
receivers=()
own_instrument_files=()
touch "$scratch/begin"
trap clean_up EXIT

say "Powering simulated card $card: the full listing of both exchanges"
power_on

say 'Channel 0 looks for three seconds whether the card runs already, then brings it up'
note_instrument_file
receive 0 >"$scratch/channel0.quotes"
watch_bring_up 1

say 'Three more receivers; on a terminal, the quotes of channel 1 as they come'
if [[ -t 1 ]]; then
  receive 1
else
  receive 1 >"$scratch/channel1.quotes"
fi
receive 2 >"$scratch/channel2.quotes"
receive 3 >"$scratch/channel3.quotes"
for channel in 1 2 3; do
  wait_until 30 "quotes of channel $channel" has_taken "$channel" 1000
done

say 'The card tells that it has lost a packet: channel 0 brings it up again, the others stay'
note_instrument_file
tell event lost 0
watch_bring_up 2
for channel in 1 2 3; do
  taken=$(card_says ".channels[$channel].taken")
  wait_until 30 "further quotes of channel $channel" has_taken "$channel" $((taken + 1000))
done

say 'The exchange falls silent'
tell feed stop shfe2ps
tell feed stop ine2ps
wait_until 30 'every message taken' all_heard

result=0
for receiver in "${receivers[@]}"; do
  kill -INT "$receiver"
  wait "$receiver" || result=1
done
for channel in 0 1 2 3; do
  show "$channel"
done
say 'The instrument file of the half-day'
show_instrument_file
say 'What the card says'
judge_manager || result=1
for channel in 1 2 3; do
  judge "$channel" || result=1
done

say 'Powering off'
"$bin/kova-simcard" off --card "$card"
[[ $result -eq 0 ]] || fail 'a receiver did not get exactly what the card sent it'
say 'Every receiver got exactly what the card sent it.'
