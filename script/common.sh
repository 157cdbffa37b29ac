# shellcheck shell=bash
# Read by the other scripts. Goes to the root of the project; --help prints the comment at the head of the script.
case ${1-} in
-h | --help)
    sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
    exit
    ;;
esac
cd "$(dirname "$0")/.." || exit

# step NAME LOG COMMAND [ARGUMENT...]: runs a command whose output goes to LOG. Every 20 seconds it prints how far that
# is, by the last count of ninja, ctest or a fuzzer in LOG. Returns what the command returns.
step() {
    local name=$1 log=$2 begin=$SECONDS count ticker status=0
    shift 2
    mkdir -p "$(dirname "$log")"
    : >"$log"
    while sleep 20 >/dev/null 2>&1 && kill -0 $$ 2>/dev/null; do
        count=$(grep -oE '^\[[0-9]+/[0-9]+\]|^ *[0-9]+/[0-9]+ Test|^#[0-9]+' "$log" | tail -n 1)
        echo "  $name, $((SECONDS - begin)) s${count:+: $count}"
    done &
    ticker=$!
    "$@" >"$log" 2>&1 || status=$?
    kill "$ticker" 2>/dev/null
    wait "$ticker" 2>/dev/null || true
    return "$status"
}
