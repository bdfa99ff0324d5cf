#!/usr/bin/env bash
# Time from launching the desktop application to its window first showing painted content, as a
# user would see it on an X server (Xvfb here). Polls the window's pixels; each poll costs a few
# tens of milliseconds, which bounds the resolution. Prints each run and the median.
#   bench/app_first_paint.sh [BINARY] [RUNS] [PROJECT.lvesper]
set -euo pipefail
binary="${1:-build/src/shell/app/lumivesper}"
runs="${2:-7}"
project="${3:-}"
for tool in Xvfb xdotool xwd gzip; do
    command -v "$tool" >/dev/null || { echo "missing $tool (scripts/setup installs it)" >&2; exit 2; }
done

# A display of its own: Xvfb picks a free number and writes it to the file.
numberFile="$(mktemp)"
frame="$(mktemp)"
Xvfb -displayfd 3 -screen 0 1600x1000x24 -nolisten tcp 3>"$numberFile" >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null; rm -f "$numberFile" "$frame"' EXIT
for _ in $(seq 100); do [[ -s "$numberFile" ]] && break; sleep 0.1; done
export DISPLAY=":$(head -1 "$numberFile")"

times=()
for run in $(seq "$runs"); do
    runtime="$(mktemp -d)"; chmod 700 "$runtime"
    config="$(mktemp -d)"
    home="$(mktemp -d)" # no recent projects or settings of anyone else's
    start=$(date +%s%N)
    HOME="$home" XDG_CONFIG_HOME="$home/.config" XDG_STATE_HOME="$home/.state" \
    XDG_RUNTIME_DIR="$runtime" LUMIVESPER_CONFIG_DIR="$config" "$binary" ${project:+"$project"} \
        >"$home/output.log" 2>&1 &
    app=$!
    painted=""
    while [[ -z "$painted" ]]; do
        window=$(xdotool search --onlyvisible --class lumivesper 2>/dev/null | head -1 || true)
        if [[ -n "$window" ]]; then
            # A window that has painted is no longer one flat colour, which compresses to almost
            # nothing. Cheaper than an image tool per poll, so the polls stand close together.
            xwd -id "$window" -silent >"$frame" 2>/dev/null || true
            raw=$(stat -c %s "$frame")
            packed=$(gzip -1 -c "$frame" | wc -c)
            (( raw > 0 && packed * 100 > raw )) && painted=$(date +%s%N)
        fi
        if ! kill -0 "$app" 2>/dev/null || (( $(date +%s%N) - start > 20000000000 )); then
            echo "run $run: no paint; the program said:" >&2
            tail -5 "$home/output.log" >&2
            break
        fi
    done
    kill "$app" 2>/dev/null || true
    wait "$app" 2>/dev/null || true
    rm -rf "$runtime" "$config" "$home"
    [[ -n "$painted" ]] || continue
    ms=$(( (painted - start) / 1000000 ))
    echo "run $run: ${ms} ms"
    times+=("$ms")
done
((${#times[@]})) || exit 1
median=$(printf '%s\n' "${times[@]}" | sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}')
echo "launch to first paint, median of ${#times[@]}: ${median} ms"
