#!/usr/bin/env bash
# Time from launching the desktop application to its window first showing painted content, as a
# user would see it on an X server (Xvfb here). Polls the window's pixels; each poll costs a few
# milliseconds, which bounds the resolution. Prints each run and the median.
#   bench/app_first_paint.sh [BINARY] [RUNS] [PROJECT.lvesper]
set -euo pipefail
binary="${1:-build/src/shell/app/lumivesper}"
runs="${2:-7}"
project="${3:-}"
for tool in Xvfb xdotool xwd convert; do
    command -v "$tool" >/dev/null || { echo "missing $tool (scripts/setup installs it)" >&2; exit 2; }
done

display=:97
Xvfb "$display" -screen 0 1600x1000x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null' EXIT
export DISPLAY="$display"
for _ in $(seq 50); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done

times=()
for run in $(seq "$runs"); do
    runtime="$(mktemp -d)"; chmod 700 "$runtime"
    config="$(mktemp -d)"
    start=$(date +%s%N)
    XDG_RUNTIME_DIR="$runtime" LUMIVESPER_CONFIG_DIR="$config" "$binary" ${project:+"$project"} \
        >/dev/null 2>&1 &
    app=$!
    painted=""
    while [[ -z "$painted" ]]; do
        window=$(xdotool search --onlyvisible --class lumivesper 2>/dev/null | head -1 || true)
        if [[ -n "$window" ]]; then
            # A window that has painted is no longer one flat colour.
            deviation=$(xwd -id "$window" -silent 2>/dev/null |
                        convert xwd:- -format '%[fx:standard_deviation]' info: 2>/dev/null || echo 0)
            [[ "$deviation" != "0" ]] && painted=$(date +%s%N)
        fi
        (( $(date +%s%N) - start > 20000000000 )) && { echo "run $run: no paint in 20 s" >&2; break; }
    done
    kill "$app" 2>/dev/null; wait "$app" 2>/dev/null || true
    rm -rf "$runtime" "$config"
    [[ -n "$painted" ]] || continue
    ms=$(( (painted - start) / 1000000 ))
    echo "run $run: ${ms} ms"
    times+=("$ms")
done
((${#times[@]})) || exit 1
median=$(printf '%s\n' "${times[@]}" | sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}')
echo "launch to first paint, median of ${#times[@]}: ${median} ms"
