#!/usr/bin/env bash
# Runs scripts/setup as a user without root on a machine where no package is installed yet, with
# stand-ins for the system's tools, and checks what reaches apt-get.
set -euo pipefail

setup="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/scripts/setup"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/bin" "$work/build"
touch "$work/build/build.ninja"

stub() { printf '#!/usr/bin/env bash\n%s\n' "$2" > "$work/bin/$1"; chmod +x "$work/bin/$1"; }
stub id 'echo 1000'
stub dpkg-query 'exit 1'
stub cmake 'exit 0'
# sudo keeps only a safe PATH of the caller's environment, as its env_reset default does.
stub sudo 'exec env -i PATH="$PATH" "$@"'
stub apt-get "echo \"\${DEBIAN_FRONTEND:-unset} \$*\" >> '$work/apt.log'"

PATH="$work/bin:$PATH" LUMIVESPER_BUILD_DIR="$work/build" bash "$setup" > "$work/out.log" 2>&1 ||
    { cat "$work/out.log"; echo "FAIL: setup exited with an error"; exit 1; }

status=0
while read -r frontend command rest; do
    if [[ $frontend != noninteractive ]]; then
        echo "FAIL: apt-get $command ran with DEBIAN_FRONTEND=$frontend"
        status=1
    fi
done < "$work/apt.log"
if ! grep -q '^[^ ]* install .* ca-certificates' "$work/apt.log"; then
    echo "FAIL: ca-certificates is not installed (HTTPS downloads need it)"
    status=1
fi
[[ $(wc -l < "$work/apt.log") -eq 2 ]] || { echo "FAIL: expected update and install"; status=1; }
cat "$work/apt.log"
exit $status
