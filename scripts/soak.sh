#!/usr/bin/env bash
# Runs everything at once for hours and accounts for every message: a simulated card with the full listing at 100,000
# quotes a second, brought up by channel 0, one application on each of the sixteen channels. Again and again the card
# loses a packet, from which channel 0 recovers, and an application is killed and started anew.
#
#   scripts/soak.sh [MINUTES]     120 if not given, 1 to 100000
#
# Prints a line a minute and a verdict. Fails unless each message that the exchange made was taken by an application or
# counted by the card as lost, each application got exactly what was taken from its channel, every recovery succeeded,
# no process grew and nothing is left behind. What the numbers mean: docs/testing.md. SOAK_CARD says which simulated
# card it is, 9 if not set.
set -euo pipefail
cd "$(dirname "$0")/.."

readonly card=${SOAK_CARD:-9}
readonly rate=100000
readonly bin=$PWD/build/release/bin
readonly patience=120   # seconds for anything that has to happen at all
readonly growth_kb=1024 # how much larger a process may be at the end than when it had settled

# Each product goes to one channel, so that every quote has exactly one receiver: the channels' counts add up to the
# card's. By the share of the traffic that each product has, the channels get about the same.
readonly products=('br,lu' rb ag au sc cu 'fu,wr' al 'ni,ad' 'zn,bc' ru hc 'ao,pb' 'ec,sp' 'bu,ss' 'sn,nr')
# Killed in turn. The others, and channel 0, live from the beginning to the end, for their memory to be watched.
readonly victims=(1 2 3 4 5 6 7)

fail() {
  printf 'soak: %s\n' "$*" >&2
  exit 1
}

# wrong WHAT: goes on, so that everything that does not hold is told.
wrong() {
  printf 'soak: WRONG: %s\n' "$*" >&2
  result=1
}

build() {
  ./scripts/bootstrap.sh build
  [[ -f build/release/CMakeCache.txt ]] || cmake --preset release -DKOVA_BUILD_TESTS=OFF >/dev/null
  cmake --build --preset release --target kova-simcard kova-quotes
}

# ---------------------------------------------------------------- the card and the applications

power_on() {
  printf 'rate = %d\nlisting = "full"\n' "$rate" >"$scratch/scenario.toml"
  # Rings of 2^13 slots: all sixteen fit into the 64 MB that containers have.
  "$bin/kova-simcard" run --card "$card" --scenario "$scratch/scenario.toml" --slots-log2 13 --quiet \
    >"$scratch/card.out" 2>"$scratch/card.err" &
  card_process=$!
  processes[card_process]='the card'
}

configure() {
  local channel
  cat <<INI
[config]
device = xilinx$card:$1
cpucore = -1
log_level = 7
log_path = $scratch
INI
  [[ $1 -eq 0 ]] || return 0
  printf 'shfe2ps = enabled\nine2ps = enabled\n'
  for channel in "${!products[@]}"; do
    printf '\n[channel%d]\ninsts = %s\noptions = recv\n' "$channel" "${products[channel]}"
  done
}

# receive CHANNEL: starts its application and counts from here.
receive() {
  local channel=$1
  configure "$channel" >"$scratch/channel$channel.ini"
  rm -f "$scratch/channel$channel.json"
  "$bin/kova-quotes" --config "$scratch/channel$channel.ini" --idle sleep --format none \
    --summary "$scratch/channel$channel.json" >"$scratch/channel$channel.out" 2>"$scratch/channel$channel.err" &
  receivers[channel]=$!
  processes[$!]="the receiver of channel $channel"
  started[$!]=$SECONDS
}

tell() {
  "$bin/kova-simcard" tell --card "$card" "$@" >/dev/null || fail "the card refuses: $*"
}

# look: what the card says now. Values of a channel: sent, taken, abandoned, waiting, lost, unheard.
look() {
  local values value
  values=$("$bin/kova-simcard" status --card "$card" --json 2>/dev/null | jq -r '
    if .state == "on" then
      ([.packets[]] | add), .registers.event_pkts, .forwarding.forwarded, .forwarding.openings,
      (if .cores.shfe_2ps == "started" and .cores.shfe_4ps == "started" then 1 else 0 end),
      ([.tables.shfe_2ps, .tables.ine_2ps | .filled - .subscribed] | add),
      (.channels[] | .sent, .taken, .abandoned, .waiting, .lost, .unheard)
    else empty end') || true
  mapfile -t value <<<"$values"
  [[ ${#value[@]} -eq $((6 + 6 * ${#products[@]})) ]] || return 1
  packets=${value[0]} events=${value[1]} frames=${value[2]} openings=${value[3]}
  is_started=${value[4]} unsubscribed=${value[5]}
  local channel at
  for channel in "${!products[@]}"; do
    at=$((6 + 6 * channel))
    sent[channel]=${value[at]} taken[channel]=${value[at + 1]} abandoned[channel]=${value[at + 2]}
    waiting[channel]=${value[at + 3]} lost[channel]=${value[at + 4]} unheard[channel]=${value[at + 5]}
  done
}

sum() {
  local total=0 value
  for value in "$@"; do
    total=$((total + value))
  done
  printf '%d' "$total"
}

# Fails when one of the processes has ended unasked.
check_processes() {
  local process
  for process in "${!processes[@]}"; do
    kill -0 "$process" 2>/dev/null ||
      fail "${processes[$process]} has ended by itself; last lines: $(tail -q -n 3 "$scratch"/*.err)"
  done
}

# wait_until WHAT CONDITION: the condition looks at what look() has found.
wait_until() {
  local deadline=$((SECONDS + patience))
  until look && "$2"; do
    ((SECONDS < deadline)) || fail "$1: not after $patience seconds"
    check_processes
    sleep 0.2
  done
}

is_on() { [[ $openings -eq 0 ]]; }
is_up() { [[ $openings -eq $((1 + events_sent)) && $is_started -eq 1 ]]; }
is_heard() { [[ $(sum "${waiting[@]}") -eq 0 ]]; }

# ---------------------------------------------------------------- what happens to them

# Messages to channel 0 that are quotes. What nobody heard of channel 0 are events before it was first opened.
manager_quotes() {
  printf '%d' $((sent[0] - frames - (events - unheard[0])))
}

note_instrument_file() {
  local file
  file=$(date '+%Y%m%d %H' | { read -r day hour && printf '/tmp/.shfe_%s_' "$day" &&
    if ((10#$hour < 17)); then echo am; else echo pm; fi; })
  [[ -n ${found_there[$file]-} ]] || instrument_files[$file]=ours
}

# The card says that it has lost a packet. Quotes that came before the event and those that come until the card is
# reset are discarded by channel 0; how many there can be, the next look at the stopped card says.
lose_packet() {
  look || fail 'the card does not answer'
  quotes_before_event=$(manager_quotes)
  note_instrument_file
  tell event lost $((events_sent % 4))
  events_sent=$((events_sent + 1))
  recovering_since=$SECONDS
  is_stop_seen=0
}

follow_recovery() {
  [[ $recovering_since -ge 0 ]] || return 0
  if [[ $is_stop_seen -eq 0 && ($is_started -eq 0 || $openings -eq $((1 + events_sent))) ]]; then
    is_stop_seen=1
    may_be_passed=$((may_be_passed + $(manager_quotes) - quotes_before_event))
  fi
  if is_up; then
    note_instrument_file
    recovered=$((recovered + 1))
    longest_recovery=$((SECONDS - recovering_since > longest_recovery ? SECONDS - recovering_since : longest_recovery))
    recovering_since=-1
  else
    ((SECONDS - recovering_since < patience)) || fail "no recovery within $patience seconds"
  fi
}

# Its summary is lost with it; what it has taken is known from the card alone.
kill_receiver() {
  local channel=${victims[kills % ${#victims[@]}]} process status=0
  process=${receivers[channel]}
  unset "processes[$process]" "settled[$process]"
  kill -KILL "$process"
  { wait "$process" || status=$?; } 2>/dev/null # without the shell's own word on it
  [[ $status -eq 137 ]] || wrong "the receiver of channel $channel ended with $status and not by the kill"
  look || fail 'the card does not answer'
  taken_by_killed=$((taken_by_killed + taken[channel] - taken_before[channel]))
  taken_before[channel]=${taken[channel]}
  kills=$((kills + 1))
  receive "$channel"
}

# measure: resident kB of each process. One has settled when it has run for a while, and the card and channel 0 when
# they have gone through a recovery besides.
measure() {
  local process kb files=()
  for process in "${!processes[@]}"; do
    files+=("/proc/$process/status")
  done
  while read -r process kb; do
    resident[process]=$kb
    if [[ -z ${settled[$process]-} ]] && ((SECONDS - started[process] >= settling)) &&
      { [[ $process -ne $card_process && $process -ne ${receivers[0]} ]] || [[ $recovered -gt 0 ]]; }; then
      settled[process]=$kb
    fi
  done < <(awk '/^VmRSS:/ { split(FILENAME, part, "/"); print part[3], $2 }' "${files[@]}")
}

tell_minute() {
  local channel kb largest=0
  for channel in "${!products[@]}"; do
    kb=${resident[receivers[channel]]-0}
    [[ $channel -eq 0 || $kb -lt $largest ]] || largest=$kb
    [[ ${taken[channel]} -gt ${taken_last_minute[channel]} ]] || wrong "channel $channel stands still"
    taken_last_minute[channel]=${taken[channel]}
  done
  printf '%4d min: %d quotes (%d/s), %d lost, %d unheard; %d of %d events recovered, %d kills; ' \
    $(((SECONDS - begin) / 60)) "$packets" $(((packets - packets_last_minute) / (SECONDS - last_minute))) \
    "$(sum "${lost[@]}")" "$(sum "${unheard[@]}")" "$recovered" "$events_sent" "$kills"
  printf 'MB: card %d.%d, channel 0 %d.%d, others up to %d.%d\n' $((resident[card_process] / 1024)) \
    $((resident[card_process] % 1024 * 10 / 1024)) $((resident[receivers[0]] / 1024)) \
    $((resident[receivers[0]] % 1024 * 10 / 1024)) $((largest / 1024)) $((largest % 1024 * 10 / 1024))
  packets_last_minute=$packets
  last_minute=$SECONDS
}

# ---------------------------------------------------------------- the verdict

judge_memory() {
  local process grown most=-1000000 which=none watched=0
  for process in "${!settled[@]}"; do
    watched=$((watched + 1))
    grown=$((resident[process] - settled[process]))
    [[ $grown -le $growth_kb ]] ||
      wrong "${processes[$process]} grew from ${settled[$process]} to ${resident[$process]} kB"
    [[ $grown -le $most ]] || most=$grown which=${processes[$process]}
  done
  printf 'memory: %d processes watched, the most grown is %s, by %d kB (allowed: %d)\n' \
    "$watched" "$which" "$most" "$growth_kb"
  [[ -n ${settled[$card_process]-} && -n ${settled[${receivers[0]}]-} && $watched -ge 2 ]] ||
    wrong 'the run was too short to watch the memory'
}

end_receivers() {
  local channel status
  for channel in "${!products[@]}"; do
    kill -INT "${receivers[channel]}"
  done
  for channel in "${!products[@]}"; do
    status=0
    wait "${receivers[channel]}" || status=$?
    [[ $status -eq 0 ]] || wrong "the receiver of channel $channel ended with $status"
    unset "processes[${receivers[channel]}]"
  done
}

# judge_receiver CHANNEL: what its last application got, against what the card says was taken from the channel.
judge_receiver() {
  local channel=$1 got backward untracked due
  read -r got backward untracked < <(jq -r '"\(.channel_quotes) \(.backward) \(.untracked)"' \
    "$scratch/channel$channel.json") || true
  due=$((taken[channel] - taken_before[channel]))
  received=$((received + got))
  [[ $backward -eq 0 && $untracked -eq 0 ]] ||
    wrong "channel $channel: $backward change numbers go back, $untracked quotes of unknown instruments"
  if [[ $channel -eq 0 ]]; then
    due=$((due - frames - (events - unheard[0])))
    passed=$((due - got))
    [[ $passed -ge 0 && $passed -le $may_be_passed ]] ||
      wrong "channel 0 got $got quotes and $due were taken: between them are 0 to $may_be_passed while it recovers"
  else
    [[ $got -eq $due ]] || wrong "channel $channel got $got quotes and $due were taken"
  fi
  printf 'channel %2d: %d sent (%d taken, %d left behind by killed receivers), %d lost, %d unheard; ' "$channel" \
    "${sent[channel]}" "${taken[channel]}" "${abandoned[channel]}" "${lost[channel]}" "${unheard[channel]}"
  printf 'the last receiver got %d of %d\n' "$got" "$due"
}

judge() {
  local channel offered unheard_quotes
  received=0 passed=0
  for channel in "${!products[@]}"; do
    [[ ${sent[channel]} -eq $((taken[channel] + abandoned[channel])) ]] ||
      wrong "channel $channel: sent ${sent[channel]}, taken ${taken[channel]}, left behind ${abandoned[channel]}"
    judge_receiver "$channel"
  done
  offered=$(($(sum "${sent[@]}" "${lost[@]}" "${unheard[@]}") - frames - events))
  [[ $offered -eq $packets ]] || wrong "the card counted $packets quotes, and $offered were sent or lost"
  [[ $unsubscribed -eq 0 ]] || wrong "$unsubscribed instruments have no receiver"
  [[ $recovered -eq $events_sent && $events_sent -gt 0 ]] || wrong "$recovered of $events_sent events recovered"
  [[ $kills -gt 0 ]] || wrong 'nobody was killed'
  unheard_quotes=$(sum "${unheard[@]:1}")
  cat <<TEXT
of $packets quotes that the card made
  $received were counted by the receivers that got them
  $taken_by_killed were taken by receivers that were killed, as the card counts
  $(sum "${abandoned[@]}") were left behind by these; up to 63 of each one may have been taken all the same
  $passed were discarded by channel 0 while it began to recover; $may_be_passed came then
  $(sum "${lost[@]}") were lost, since a receiver was too slow
  $unheard_quotes were lost, since their channel had no receiver
TEXT
  [[ $((received + taken_by_killed + passed + $(sum "${abandoned[@]}" "${lost[@]}") + unheard_quotes)) \
    -eq $packets ]] || wrong 'these do not add up'
  printf 'about %d quotes a second while the feeds ran\n' "$pace"
  printf '%d events, each recovered from, the slowest in %d s; %d receivers killed\n' \
    "$events_sent" "$longest_recovery" "$kills"
}

# ours: processes that this run has started, and theirs; they all have its folder among their arguments.
ours() {
  local process
  for process in /proc/[0-9]*; do
    [[ $(readlink "$process/exe" 2>/dev/null) != "$bin/"* ]] ||
      ! grep -qF "$scratch" "$process/cmdline" 2>/dev/null || printf '%s\n' "${process#/proc/}"
  done
}

# end_all SIGNAL: to what is still there of ours.
end_all() {
  local left
  mapfile -t left < <(ours)
  [[ ${#left[@]} -eq 0 ]] || kill -"$1" "${left[@]}" 2>/dev/null || true
}

has_left() {
  local is_clean=yes process
  for process in $(ours); do
    printf 'soak: left behind: process %s\n' "$process" >&2
    is_clean=no
  done
  if [[ -e /dev/shm/kova_simcard_$card ]]; then
    printf 'soak: left behind: the memory of card %s\n' "$card" >&2
    is_clean=no
  fi
  [[ $is_clean == no ]]
}

# Channel 0 heeds a signal between two steps of a bring-up only.
end_early() {
  local deadline=$((SECONDS + 10))
  end_all TERM
  while [[ -n $(ours) ]] && ((SECONDS < deadline)); do
    sleep 0.1
  done
  end_all KILL
  { wait; } 2>/dev/null
}

# However it ends: nothing may be left that was not ended on purpose.
clean_up() {
  local status=$?
  trap '' INT TERM HUP
  [[ $is_over -eq 1 ]] || end_early
  if has_left; then
    end_all KILL
    rm -f "/dev/shm/kova_simcard_$card"
    status=1
  fi
  rm -f "${!instrument_files[@]}"
  case $status in
    0) printf 'soak: everything holds\n' ;;
    130) printf 'soak: interrupted\n' >&2 ;;
    *) printf 'soak: FAILED; the logs are in %s\n' "$scratch" >&2 ;;
  esac
  [[ $status -ne 0 && $status -ne 130 ]] || rm -rf "$scratch"
  exit "$status"
}

# ---------------------------------------------------------------- the run

run() {
  local total=$((60 * minutes)) event_pause kill_pause next_event next_kill last_look
  event_pause=$((total / 3 < 300 ? total / 3 : 300))
  kill_pause=$((total / 4 < 60 ? total / 4 : 60))
  settling=$((total / 3 < 120 ? total / 3 : 120))

  printf 'soak: %d minutes; a lost packet every %d s, a kill every %d s\n' "$minutes" "$event_pause" "$kill_pause"
  power_on
  started[card_process]=$SECONDS
  wait_until 'powering the card' is_on
  local channel
  for channel in "${!products[@]}"; do
    taken_before[channel]=0 taken_last_minute[channel]=0
    receive "$channel"
  done
  note_instrument_file
  wait_until 'bringing the card up' is_up
  note_instrument_file
  printf 'the card is up after %d s\n' $((SECONDS - started[card_process]))

  begin=$SECONDS last_minute=$SECONDS packets_last_minute=$packets
  local packets_before=$packets
  next_event=$((begin + event_pause)) next_kill=$((begin + kill_pause))
  while ((SECONDS - begin < total)); do
    last_look=$SECONDS
    sleep 1
    check_processes
    look || fail 'the card does not answer'
    [[ $is_started -eq 0 ]] || running=$((running + SECONDS - last_look))
    measure
    follow_recovery
    if ((SECONDS >= next_event && recovering_since < 0)); then
      lose_packet
      next_event=$((next_event + event_pause))
    fi
    if ((SECONDS >= next_kill)); then
      kill_receiver
      next_kill=$((next_kill + kill_pause))
    fi
    ((SECONDS - last_minute < 60)) || tell_minute
  done
  pace=$(((packets - packets_before) / (running > 0 ? running : 1)))
  while ((recovering_since >= 0)); do
    sleep 1
    check_processes
    look || fail 'the card does not answer'
    follow_recovery
  done
  measure

  tell feed stop shfe2ps
  tell feed stop ine2ps
  wait_until 'every message taken' is_heard
  judge_memory
  end_receivers
  look || fail 'the card does not answer'
  judge
  unset "processes[$card_process]"
  "$bin/kova-simcard" off --card "$card" >/dev/null || wrong 'the card cannot be powered off'
  wait "$card_process" || wrong 'the card did not end well'
  is_over=1
}

[[ ${1:-120} =~ ^([1-9][0-9]{0,4}|100000)$ ]] || fail "how many minutes? not $1"
readonly minutes=${1:-120}

build
[[ ! -e /dev/shm/kova_simcard_$card ]] ||
  fail "simulated card $card is on already; power it off, or set SOAK_CARD to another number"

declare -A instrument_files=() found_there=()
processes=() started=() settled=() resident=() # by process id
receivers=() sent=() taken=() abandoned=() waiting=() lost=() unheard=() taken_before=() taken_last_minute=()
packets=0 events=0 frames=0 openings=0 is_started=0 unsubscribed=0
events_sent=0 recovered=0 recovering_since=-1 longest_recovery=0 may_be_passed=0 kills=0 taken_by_killed=0 running=0 pace=0
result=0 is_over=0
for file in /tmp/.shfe_*; do
  found_there[$file]=yes
done
scratch=$(mktemp -d "${TMPDIR:-/tmp}/kova-soak.XXXXXX")
trap clean_up EXIT
trap 'exit 130' INT TERM HUP
run
[[ $result -eq 0 ]]
