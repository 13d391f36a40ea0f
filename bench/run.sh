#!/usr/bin/env bash
# Export throughput, tree loading and memory of Parcelwise on one large embedded repository, each
# set against what the same machine does at best, in one run:
#   1. `parcelwise export --all` against the floor no exporter can beat: the sqlite3 shell writing
#      the same documents' bytes to files with writefile(); and against `cp -a` of the tree the
#      export wrote (the disk's own speed for those files and directories). Live and archive.
#   2. A click on the folder with 10,000 children, live and archive (bench_tree_load).
#   3. The export's peak resident memory: with --jobs 8 on the repository, and exporting one
#      document of 999,999,000 bytes (the demo repository with that document added).
#   4. Proving and resuming (live): `parcelwise verify` of an export against its report (disk only)
#      next to `sha256sum` over the same files; `export --update` over that complete export next
#      to the fresh export; and what --report itself costs the export.
#   5. The live export through the SQL Server stand-in (tools/sqlserver-standin: FreeTDS's ODBC
#      driver, TDS over 127.0.0.1) with 0, 1 and 5 ms added before every reply, with the default
#      settings, next to the embedded figure and to each other: what the wire and each round trip
#      cost.
#   6. The window copying the live database, offscreen (bench_window_stall): the longest its event
#      loop is kept waiting during the copy.
#   Live exports run with --jobs 1, the default (no --jobs) and --jobs 8 side by side; every other
#   export runs with the default settings.
# Every figure is the median of RUNS runs. Nothing here asserts a time: the table says PASS or MISS.
# The table is also left in BENCH_DIR/results.txt.
#
# Environment (all optional):
#   BENCH_DIR   work folder (default /tmp/parcelwise-bench); the repository is generated into
#               BENCH_DIR/repo once and reused while the generator and GEN_ARGS stay the same
#   BUILD_DIR   build tree (default <checkout>/build; configured if missing)
#   RUNS        runs per export figure (default 5)    TREE_RUNS  clicks per database (default 5)
#   WIRE_RUNS   runs per stand-in export (default 1; 0 leaves them out)
#   WIRE_LATENCIES  the stand-in's added latencies in ms (default "0 1 5")
#   GEN_ARGS    extra arguments for gen_large_repository (default: its own defaults)
#   KEEP=1      keep the written trees (they are deleted at the end otherwise)
#   HUGE=0      leave out the 999,999,000-byte document (it needs about 2 GiB of disk)
set -euo pipefail

checkout="$(cd "$(dirname "$0")/.." && pwd)"
BENCH_DIR="${BENCH_DIR:-/tmp/parcelwise-bench}"
BUILD_DIR="${BUILD_DIR:-$checkout/build}"
RUNS="${RUNS:-5}"
TREE_RUNS="${TREE_RUNS:-5}"
WIRE_RUNS="${WIRE_RUNS:-1}"
WIRE_LATENCIES="${WIRE_LATENCIES:-0 1 5}"
GEN_ARGS="${GEN_ARGS:-}"
KEEP="${KEEP:-0}"
HUGE="${HUGE:-1}"
HUGE_BYTES=999999000
CHUNK_KIB=1024
LIVE=BigCorp
ARCHIVE=BigCorpArchive

die() { echo "run.sh: $*" >&2; exit 1; }
note() { echo "== $*" >&2; }
[[ "$RUNS" =~ ^[1-9][0-9]?$ ]] || die "RUNS must be a whole number from 1 to 99, not '$RUNS'"
[[ "$TREE_RUNS" =~ ^[1-9][0-9]?$ ]] || die "TREE_RUNS must be a whole number from 1 to 99, not '$TREE_RUNS'"
[[ "$WIRE_RUNS" =~ ^[0-9][0-9]?$ ]] || die "WIRE_RUNS must be a whole number from 0 to 99, not '$WIRE_RUNS'"
for l in $WIRE_LATENCIES; do [[ "$l" =~ ^[0-9]{1,4}$ ]] || die "WIRE_LATENCIES must be whole numbers, not '$l'"; done

# --- Tools ---------------------------------------------------------------------------------
install_packages() {
    local sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    note "installing $*"
    $sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "$@" >/dev/null
}
missing=()
[ -x /usr/bin/time ] || missing+=(time)
command -v sqlite3 >/dev/null || missing+=(sqlite3)
((${#missing[@]} == 0)) || install_packages "${missing[@]}"
[ -x /usr/bin/time ] || die "/usr/bin/time is needed (Debian package 'time')"
command -v sqlite3 >/dev/null || die "the sqlite3 shell is needed (Debian package 'sqlite3')"
sqlite3 :memory: "select writefile('/dev/null', x'00');" >/dev/null 2>&1 \
    || die "this sqlite3 shell has no writefile()"

# --- Build ---------------------------------------------------------------------------------
if [ ! -f "$BUILD_DIR/CMakeCache.txt" ]; then
    note "configuring $BUILD_DIR"
    cmake -S "$checkout" -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
note "building parcelwise, gen_large_repository, bench_tree_load, bench_window_stall, sqlserver-standin"
cmake --build "$BUILD_DIR" -j"$(nproc)" --target parcelwise gen_large_repository bench_tree_load bench_window_stall >/dev/null
exe="$BUILD_DIR/parcelwise"
standin="$BUILD_DIR/sqlserver-standin"
if ((WIRE_RUNS > 0)); then
    if ! odbcinst -q -d -n FreeTDS >/dev/null 2>&1; then
        note "FreeTDS's ODBC driver is not registered (scripts/setup.sh): the stand-in exports are left out"
        WIRE_RUNS=0
    elif ! cmake --build "$BUILD_DIR" -j"$(nproc)" --target sqlserver-standin >/dev/null; then
        note "sqlserver-standin could not be built (Qt6 Network missing?): the stand-in exports are left out"
        WIRE_RUNS=0
    fi
fi
gen="$BUILD_DIR/bench/gen_large_repository"
tree="$BUILD_DIR/bench/bench_tree_load"
window="$BUILD_DIR/bench/bench_window_stall"

# --- Repository ----------------------------------------------------------------------------
mkdir -p "$BENCH_DIR"
BENCH_DIR="$(cd "$BENCH_DIR" && pwd)"
repo="$BENCH_DIR/repo"
stamp="args=$GEN_ARGS; generator=$(cat "$checkout"/bench/gen_large_*.cpp "$checkout"/bench/gen_large_*.h | sha256sum | cut -c1-16)"
if [ -f "$repo/server.ini" ] && [ "$(cat "$repo/.params" 2>/dev/null)" = "$stamp" ]; then
    note "reusing the repository in $repo"
else
    note "generating the repository into $repo"
    rm -f "$repo/.params"
    # shellcheck disable=SC2086
    "$gen" "$repo" $GEN_ARGS >"$BENCH_DIR/generate.log" || { cat "$BENCH_DIR/generate.log" >&2; die "generation failed"; }
    echo "$stamp" >"$repo/.params"
fi
live_db="$repo/$LIVE.sqlite"
archive_db="$repo/$ARCHIVE.sqlite"

# The documents each export writes: live documents of the live database; the archive export
# writes the archived documents whose bytes the archive database holds.
live_set="from zar_file a, zar_fileLive b where a.rec_id = b.rec_id"
archive_set="from ZAR_FileArchived b, arc.zar_FileArchive c where b.rec_id = c.FileID"
attach="ATTACH '$archive_db' AS arc;"
IFS='|' read -r live_docs live_bytes live_largest < <(sqlite3 -readonly "$live_db" \
    "select count(*), sum(length(a.file_data)), max(length(a.file_data)) $live_set;")
IFS='|' read -r arc_docs arc_bytes arc_largest < <(sqlite3 -readonly "$live_db" \
    "$attach select count(*), sum(length(c.FileData)), max(length(c.FileData)) $archive_set;")

# Written trees stay until the end: on ext4 without a journal (as here) a new inode skips every
# inode freed in the last half minute, so deleting 25,000 files between steps made the next step
# pay for the deletion. Each timed step writes into a fresh folder instead.
# floor, three exports (--jobs 1, default, 8), copy and reported export of the live documents; floor,
# export and copy of the archived ones; the huge document; plus directories.
per_run=$(((live_bytes * 6 + arc_bytes * 3 + HUGE * HUGE_BYTES) / 1024 / 1024 + 500))
wire_mib=$(((live_bytes / 1024 / 1024 + 100) * WIRE_RUNS * ($(wc -w <<<"$WIRE_LATENCIES") + 1)))
need_mib=$((per_run * (RUNS + 1) + wire_mib + live_bytes / 1024 / 1024 + 1024))
free_mib=$(df -Pm "$BENCH_DIR" | awk 'NR == 2 { print $4 }')
((free_mib > need_mib)) || die "needs about $need_mib MiB free in $BENCH_DIR, has $free_mib MiB: lower RUNS or set BENCH_DIR"
work="$BENCH_DIR/work"
rm -rf "$work"
mkdir -p "$work/logs"
standin_pid=""
stop_standin() { [ -z "$standin_pid" ] || { kill "$standin_pid" 2>/dev/null; wait "$standin_pid" 2>/dev/null || true; standin_pid=""; }; }
cleanup() { stop_standin; [ "$KEEP" = 1 ] || rm -rf "$work"; }
trap cleanup EXIT

export PARCELWISE_PASSWORD="" # the generated server's login "demo" has an empty password

# --- Machine -------------------------------------------------------------------------------
cpu=$(awk -F': *' '/^model name/ { print $2; exit }' /proc/cpuinfo)
mem_gib=$(awk '/^MemTotal/ { printf "%.1f", $2 / 1048576 }' /proc/meminfo)
fs=$(df -PT "$BENCH_DIR" | awk 'NR == 2 { print $2 }')
disk_free=$(df -Ph "$BENCH_DIR" | awk 'NR == 2 { print $4 }')
load_before=$(cut -d' ' -f1-3 /proc/loadavg)

# --- Timed steps ---------------------------------------------------------------------------
now_ms() { echo $(($(date +%s%N) / 1000000)); }
# Runs a step after writing out what earlier steps left dirty, so no step pays for another's
# writes; prints "milliseconds peak-KiB" and leaves the step's stderr in $work/step.err.
timed() {
    sync
    local start end
    start=$(now_ms)
    /usr/bin/time -f '%M' -o "$work/step.rss" "$@" >"$work/step.out" 2>"$work/step.err" || {
        cat "$work/step.err" >&2
        die "failed: $*"
    }
    end=$(now_ms)
    echo "$((end - start)) $(tail -n 1 "$work/step.rss")"
}
floor() { # db-setup set column id-column dir
    mkdir "$5"
    timed sqlite3 -readonly "$live_db" "$1 select count(*), sum(writefile('$5/' || $4, $3)) $2;"
    local got
    got=$(tail -n 1 "$work/step.out")
    echo "$got" >"$5.count"
}
export_to() { # database dir [server [jobs]]: without jobs, the default settings
    mkdir "$2"
    local jobs=()
    [ -z "${4:-}" ] || jobs=(--jobs "$4")
    timed "$exe" export --server "${3:-$repo}" --user demo --database "$1" --all --dest "$2" \
        --log-dir "$work/logs" --no-progress "${jobs[@]}"
    grep -o 'Exported .*' "$work/step.err" | tail -n 1 >"$2.summary"
}
# One document of HUGE_BYTES in the demo repository's "Docs", exported alone.
huge_export() { # dir
    mkdir "$1"
    timed "$exe" export --server "$huge_repo" --user demo --database Acme --folder Docs --dest "$1" \
        --log-dir "$work/logs" --no-progress
    grep -o 'Exported .*' "$work/step.err" | tail -n 1 >"$1.summary"
}
# The stand-in serving the repository with the given latency; sets wire_server to "127.0.0.1,PORT".
start_standin() { # latency-ms
    stop_standin
    "$standin" --port 0 --server "$repo" --latency-ms "$1" --no-stdin --max-seconds 86400 \
        >"$work/standin.out" 2>"$work/standin.err" &
    standin_pid=$!
    local port="" tries=0
    while [ -z "$port" ] && ((tries++ < 100)); do
        sleep 0.1
        port=$(awk '$1 == "port" { print $2 }' "$work/standin.out")
    done
    [ -n "$port" ] || { cat "$work/standin.err" >&2; die "sqlserver-standin did not start"; }
    wire_server="127.0.0.1,$port"
}
# The same export with its report; the report lands beside the tree.
export_report_to() { # database dir
    mkdir "$2"
    timed "$exe" export --server "$repo" --user demo --database "$1" --all --dest "$2" \
        --log-dir "$work/logs" --no-progress --report "$2.jsonl"
    grep -o 'Exported .*' "$work/step.err" | tail -n 1 >"$2.summary"
}
update_of() { # database dir: the export is complete, so everything should be left as it is
    timed "$exe" export --server "$repo" --user demo --database "$1" --all --dest "$2" \
        --log-dir "$work/logs" --no-progress --update --report "$2.update.jsonl"
    grep -o 'Exported .*' "$work/step.err" | tail -n 1 >"$2.update.summary"
}
verify_of() { # dir
    timed "$exe" verify --report "$1.jsonl" --dest "$1" --no-progress
}
sha256sum_of() { # dir: the same files, as many per sha256sum process as xargs allows
    timed sh -c 'cd "$1" && find . -type f -print0 | xargs -0 sha256sum >/dev/null' sh "$1"
}
copy_of() { # from to
    timed cp -a "$1" "$2"
}
# The export must write exactly the documents the floor wrote, or the ratio means nothing.
check_same_set() { # floor-dir export-dir
    local floor_docs floor_bytes summary
    IFS='|' read -r floor_docs floor_bytes <"$1.count"
    summary=$(cat "$2.summary")
    [[ "$summary" == *" $floor_docs documents, $floor_bytes bytes "* ]] \
        || die "the export wrote something else than the floor ($floor_docs documents, $floor_bytes bytes): $summary"
}

declare -A t
add() { t[$1]="${t[$1]:-} $2"; }
step() { # name, command...
    local name=$1 ms rss
    shift
    "$@" >"$work/step.result"
    read -r ms rss <"$work/step.result"
    add "$name.ms" "$ms"
    add "$name.rss" "$rss"
}

if [ "$HUGE" = 1 ]; then
    huge_repo="$BENCH_DIR/huge"
    if [ ! -f "$huge_repo/.params" ] || [ "$(cat "$huge_repo/.params")" != "$HUGE_BYTES" ]; then
        note "writing the demo repository with one $HUGE_BYTES-byte document into $huge_repo"
        rm -rf "$huge_repo"
        "$exe" demo "$huge_repo" >/dev/null
        sqlite3 "$huge_repo/Acme.sqlite" "insert into zar_file (rec_id, folder_rec_id, File_Name, File_Description,
            File_DateUploaded, file_data) values (9999001, 7, 'huge.bin', 'Huge document', '2020-01-02 03:04:05.000',
            zeroblob($HUGE_BYTES)); insert into zar_fileLive (rec_id) values (9999001);"
        echo "$HUGE_BYTES" >"$huge_repo/.params"
    fi
fi

note "warm-up: reading the databases, one floor and one export of each"
cat "$live_db" "$archive_db" >/dev/null
floor "" "$live_set" a.file_data a.rec_id "$work/warm-floor" >/dev/null
export_to "$LIVE" "$work/warm-export" >/dev/null
floor "$attach" "$archive_set" c.FileData c.FileID "$work/warm-floor-archive" >/dev/null
export_to "$ARCHIVE" "$work/warm-export-archive" >/dev/null
rm -rf "$work"/warm-*
sync
note "waiting 35 s so the warm-up's deleted files no longer slow the file system down"
sleep 35

for run in $(seq 1 "$RUNS"); do
    note "run $run of $RUNS"
    d="$work/run$run"
    mkdir "$d"
    step live.floor floor "" "$live_set" a.file_data a.rec_id "$d/floor"
    step live.export export_to "$LIVE" "$d/export" "$repo" 1
    check_same_set "$d/floor" "$d/export"
    step live.exportdef export_to "$LIVE" "$d/exportdef"
    check_same_set "$d/floor" "$d/exportdef"
    step live.export8 export_to "$LIVE" "$d/export8" "$repo" 8
    check_same_set "$d/floor" "$d/export8"
    step live.cp copy_of "$d/export" "$d/copy"
    step live.report export_report_to "$LIVE" "$d/reported"
    check_same_set "$d/floor" "$d/reported"
    step live.verify verify_of "$d/reported"
    step live.sha256sum sha256sum_of "$d/reported"
    step live.update update_of "$LIVE" "$d/reported"
    step arc.floor floor "$attach" "$archive_set" c.FileData c.FileID "$d/floor-archive"
    step arc.export export_to "$ARCHIVE" "$d/export-archive"
    check_same_set "$d/floor-archive" "$d/export-archive"
    step arc.cp copy_of "$d/export-archive" "$d/copy-archive"
done
if [ "$HUGE" = 1 ]; then
    for run in $(seq 1 "$RUNS"); do
        note "the $HUGE_BYTES-byte document, run $run of $RUNS"
        step huge huge_export "$work/huge$run"
        [ "$(stat -c %s "$work/huge$run/Docs/Huge document.bin" 2>/dev/null)" = "$HUGE_BYTES" ] \
            || die "the huge document was not exported: $(cat "$work/huge$run.summary")"
    done
fi

if ((WIRE_RUNS > 0)); then
    # The statements one live export sends (on SQL Server a document's two go in one round trip).
    start_standin 0
    mkdir "$work/wire-count"
    "$exe" export --server "$wire_server" --user demo --database "$LIVE" --all --dest "$work/wire-count" \
        --log-dir "$work/logs" --no-progress --trace-sql "$work/wire-count.sql" 2>/dev/null \
        || die "the export through the stand-in failed"
    wire_statements=$(wc -l <"$work/wire-count.sql")
    rm -rf "$work/wire-count"
    for latency in $WIRE_LATENCIES; do
        start_standin "$latency"
        for run in $(seq 1 "$WIRE_RUNS"); do
            note "live export through the stand-in, latency $latency ms, run $run of $WIRE_RUNS"
            d="$work/wire$latency-$run"
            step "wire$latency" export_to "$LIVE" "$d" "$wire_server"
            check_same_set "$work/run1/floor" "$d"
        done
    done
    stop_standin
fi

note "the window copying the live database offscreen: the longest its event loop waits"
mkdir "$work/window"
"$window" "$repo" "$work/window" --database "$LIVE" >"$work/window.out" 2>"$work/window.err" || {
    cat "$work/window.err" >&2
    die "bench_window_stall failed"
}

note "clicking the 10,000-child folder ($TREE_RUNS times per database)"
"$tree" "$repo" --runs "$TREE_RUNS" --live "$LIVE" --archive "$ARCHIVE" >"$work/tree.out" 2>"$work/tree.err" || {
    cat "$work/tree.err" >&2
    die "bench_tree_load failed"
}
field() { # mode key [file]
    awk -v mode="$1" -v key="$2" '$1 == "RESULT" && $2 == mode {
        for (i = 3; i <= NF; ++i) { split($i, kv, "="); if (kv[1] == key) print kv[2] } }' "${3:-$work/tree.out}"
}
load_after=$(cut -d' ' -f1-3 /proc/loadavg)

# --- Table ---------------------------------------------------------------------------------
median() { tr ' ' '\n' <<<"$1" | awk 'NF' | sort -n | awk '{ v[NR] = $1 } END {
    if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
maximum() { tr ' ' '\n' <<<"$1" | awk 'NF' | sort -n | tail -n 1; }
secs() { awk -v ms="$1" 'BEGIN { printf "%.2f s", ms / 1000 }'; }
mib() { awk -v b="$1" 'BEGIN { printf "%.1f MiB", b / 1048576 }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
verdict() { awk -v v="$1" -v limit="$2" 'BEGIN { print (v <= limit ? "PASS" : "MISS") }'; }
runs_of() { tr ' ' '\n' <<<"$1" | awk 'NF' | paste -sd' '; }

rows=()
row() { rows+=("| $1 | $2 | $3 | $4 | $5 |"); }
for kind in live arc; do
    if [ "$kind" = live ]; then
        label="Live ($LIVE)"; docs=$live_docs; bytes=$live_bytes; largest=$live_largest
    else
        label="Archive ($ARCHIVE)"; docs=$arc_docs; bytes=$arc_bytes; largest=$arc_largest
    fi
    e=$(median "${t[$kind.export.ms]}"); f=$(median "${t[$kind.floor.ms]}"); c=$(median "${t[$kind.cp.ms]}")
    r=$(ratio "$e" "$f")
    if [ "$kind" = live ]; then
        row "$label export --all --jobs 1: $docs documents, $(mib "$bytes")" "$(secs "$e")" \
            "sqlite3 writefile() floor $(secs "$f")" "**$r×** (≤ 1.3×)" "$(verdict "$r" 1.3)"
        ed=$(median "${t[live.exportdef.ms]}")
        rd=$(ratio "$ed" "$f")
        row "$label export --all, default settings (4 jobs)" "$(secs "$ed")" "sqlite3 writefile() floor $(secs "$f")" \
            "**$rd×** (≤ 1×)" "$(verdict "$rd" 1)"
        e8=$(median "${t[live.export8.ms]}")
        row "$label export --all --jobs 8" "$(secs "$e8")" "sqlite3 writefile() floor $(secs "$f")" \
            "$(ratio "$e8" "$f")×" "—"
    else
        row "$label export --all: $docs documents, $(mib "$bytes")" "$(secs "$e")" \
            "sqlite3 writefile() floor $(secs "$f")" "$r×" "—"
    fi
    row "$label export against cp -a of its tree" "$(secs "$e")" "cp -a $(secs "$c")" \
        "$(ratio "$e" "$c")×" "—"
    peak_kib=$(maximum "${t[$kind.export.rss]}")
    row "$label export peak resident memory (highest of the runs)" "$(mib $((peak_kib * 1024)))" \
        "largest document $(mib "$largest")" "—" "—"
done
peak_kib=$(maximum "${t[live.exportdef.rss]}")
limit=$((64 * 1048576))
row "Live export, default settings, peak resident memory (highest of the runs)" "$(mib $((peak_kib * 1024)))" \
    "largest document $(mib "$live_largest")" "limit $(mib "$limit")" \
    "$(verdict $((peak_kib * 1024)) "$limit")"
if [ "$HUGE" = 1 ]; then
    peak_kib=$(maximum "${t[huge.rss]}")
    row "Export of one $HUGE_BYTES-byte document: peak resident memory (highest of the runs)" \
        "$(mib $((peak_kib * 1024)))" "its time $(secs "$(median "${t[huge.ms]}")")" "limit 100 MiB" \
        "$(verdict $((peak_kib * 1024)) $((100 * 1048576)))"
fi
if ((WIRE_RUNS > 0)); then
    embedded_ms=$(median "${t[live.exportdef.ms]}")
    first=${WIRE_LATENCIES%% *}
    w0=$(median "${t[wire$first.ms]}")
    for latency in $WIRE_LATENCIES; do
        w=$(median "${t[wire$latency.ms]}")
        if [ "$latency" = "$first" ]; then
            row "Live export through the stand-in (FreeTDS, TDS 7.4), default settings, +$latency ms per reply" "$(secs "$w")" \
                "embedded export $(secs "$embedded_ms")" "$(ratio "$w" "$embedded_ms")× ($wire_statements statements)" "—"
        else
            r=$(ratio "$w" "$w0")
            if [ "$latency" = 5 ]; then # four documents to a round trip, on each of four connections
                row "Live export through the stand-in, default settings, +$latency ms per reply" "$(secs "$w")" \
                    "+$first ms $(secs "$w0")" "**$r×** (≤ 2.5×)" "$(verdict "$r" 2.5)"
            else
                row "Live export through the stand-in, default settings, +$latency ms per reply" "$(secs "$w")" \
                    "+$first ms $(secs "$w0")" "$r×" "—"
            fi
        fi
    done
fi
e=$(median "${t[live.exportdef.ms]}"); rep=$(median "${t[live.report.ms]}")
v=$(median "${t[live.verify.ms]}"); s=$(median "${t[live.sha256sum.ms]}"); u=$(median "${t[live.update.ms]}")
r=$(ratio "$v" "$s")
row "Live verify --report of the export, disk only: $live_docs files, $(mib "$live_bytes")" "$(secs "$v")" \
    "sha256sum over the same files $(secs "$s")" "**$r×** (≤ 1.0×)" "$(verdict "$r" 1.0)"
r=$(ratio "$u" "$e")
unchanged=$(sed -n 's/.*(\([0-9]*\) more unchanged).*/\1/p' "$work/run1/reported.update.summary")
row "Live export --update over that complete export: ${unchanged:-0} of $live_docs documents left as they were" \
    "$(secs "$u")" "fresh export (default settings) $(secs "$e")" "**$r×** (≤ 0.10×)" "$(verdict "$r" 0.10)"
row "Live export with --report (SHA-256 taken as the bytes pass), default settings" "$(secs "$rep")" "export without $(secs "$e")" \
    "$(ratio "$rep" "$e")×" "—"
live_click=$(field live median_ms)
arc_click=$(field archive median_ms)
row "Click on \"Wide\", live: $(field live children) children" "$live_click ms" \
    "its 1 statement alone $(field live statements_median_ms) ms" "≤ 1000 ms" "$(verdict "$live_click" 1000)"
stall=$(field window max_gap_ms "$work/window.out")
row "The window copying the live database (offscreen, its jobs setting $(field window jobs "$work/window.out")): longest event-loop stall" \
    "$stall ms" "the copy: $(field window documents "$work/window.out") documents in $(secs "$(field window copy_ms "$work/window.out")")" \
    "≤ 100 ms" "$(verdict "$stall" 100)"
row "Click on \"Wide\", archive: $(field archive children) of its $(field live children) children shown" "$arc_click ms" \
    "its $(field archive statements) statements alone $(field archive statements_median_ms) ms" "no target" "—"

tee "$BENCH_DIR/results.txt" <<EOF

Parcelwise benchmark, $(date -u '+%Y-%m-%d %H:%M UTC'), commit $(git -C "$checkout" rev-parse --short HEAD 2>/dev/null || echo unknown)
Machine: $(nproc) CPUs ($cpu), $mem_gib GiB memory, $(uname -sr), $fs with $disk_free free at $BENCH_DIR
Load average before/after: $load_before / $load_after
Repository: $repo ($(du -sh "$repo" | cut -f1)); medians of $RUNS runs (exports) and $TREE_RUNS clicks, warm cache

| Figure | Median | Compared with | Ratio / limit | Target |
|---|---|---|---|---|
$(printf '%s\n' "${rows[@]}")

Every run (ms): live floor $(runs_of "${t[live.floor.ms]}"); live export $(runs_of "${t[live.export.ms]}"); live cp -a $(runs_of "${t[live.cp.ms]}")
                live export, default $(runs_of "${t[live.exportdef.ms]}"); --jobs 8 $(runs_of "${t[live.export8.ms]}")
                live export --report $(runs_of "${t[live.report.ms]}"); verify $(runs_of "${t[live.verify.ms]}"); sha256sum $(runs_of "${t[live.sha256sum.ms]}"); --update $(runs_of "${t[live.update.ms]}")
                archive floor $(runs_of "${t[arc.floor.ms]}"); archive export $(runs_of "${t[arc.export.ms]}"); archive cp -a $(runs_of "${t[arc.cp.ms]}")
Stand-in exports, default settings (ms): $(for l in $WIRE_LATENCIES; do printf '+%s ms: %s; ' "$l" "$(runs_of "${t[wire$l.ms]:-}")"; done)
Peak resident memory (KiB): live --jobs 1 $(runs_of "${t[live.export.rss]}"); default $(runs_of "${t[live.exportdef.rss]}"); --jobs 8 $(runs_of "${t[live.export8.rss]}"); archive $(runs_of "${t[arc.export.rss]}"); huge document $(runs_of "${t[huge.rss]:-}")
Window: $(awk '/^RESULT window/ { print $0 }' "$work/window.out" | cut -d' ' -f3-)
Clicks (ms): live $(awk '/^RESULT live/ { print $0 }' "$work/tree.out" | cut -d' ' -f3-)
             archive $(awk '/^RESULT archive/ { print $0 }' "$work/tree.out" | cut -d' ' -f3-)
EOF
