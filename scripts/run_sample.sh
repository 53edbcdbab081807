#!/usr/bin/env bash
# Builds the native program, makes a sample machine under ./sample (a C: volume
# shaped like a Windows system drive with the client's install and data
# directories, and a second volume D:), selects both volumes for backup and
# runs the scan the way the service starts it: with no argument. Then shows
# the lists it wrote, how long the scan took and the end of its log.
#   scripts/run_sample.sh [number-of-files-on-C:]
set -euo pipefail
cd "$(dirname "$0")/.."
files=${1:-20000}
scripts/install_deps.sh native

cmake --preset native >/dev/null
cmake --build --preset native --target qzfilelist >/dev/null
exe=$PWD/build/native/qzfilelist

root=$PWD/sample
rm -rf "$root"
mkdir -p "$root/c" "$root/d/Photos/2024" "$root/d/Music"
gen=../shared/bench/gen_tree.py
if [ -f "$gen" ]; then
  python3 "$gen" "$root/c" --files "$files" --seed 1 >/dev/null
else
  mkdir -p "$root/c/Users/Bob/Documents" "$root/c/Windows/System32"
  echo "hello" >"$root/c/Users/Bob/Documents/notes.txt"
fi
echo "holiday" >"$root/d/Photos/2024/beach.jpg"
echo "song" >"$root/d/Music/track01.mp3"

data="$root/c/ProgramData/Korvatine/qzdata"
mkdir -p "$root/c/Program Files/Korvatine" "$data"
cat >"$root/c/Program Files/Korvatine/qzinstall.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8" ?>
<contents>
<qzinstall datadir="C:\ProgramData\Korvatine\qzdata\" hguid="h0123456789abcdef0123456" />
</contents>
XML

export QZ_DRIVES="C=$root/c;D=$root/d"
echo "--- QZ_DRIVES=$QZ_DRIVES"
# Give both volumes their identity, then select them for backup the way the
# control panel writes the settings.
"$exe" -assignvolumeguid 'C:\'
"$exe" -assignvolumeguid 'D:\'
guid_of() { sed -n 's/.*vguid="\([^"]*\)".*/\1/p' "$1"; }
c_guid=$(guid_of "$data/qzvol_system_volume/qzvol_id.xml")
d_guid=$(guid_of "$root/d/.qzvol/qzvol_id.xml")
cat >"$data/qzinfo.xml" <<XML
<?xml version="1.0" encoding="UTF-8" ?>
<contents>
<qzinfo excludefiletypes="tmp,bak" max_filesize_mb="4000" numdays_warn_if_no_backup="7" />
<hard_drives_to_backup>
<qzvolume qzVolumeGuid="$c_guid" mountPointPath="C:\\" />
<qzvolume qzVolumeGuid="$d_guid" mountPointPath="D:\\" />
</hard_drives_to_backup>
</contents>
XML

# What the client's transmitter leaves behind: when it last sent a file of
# each volume (the alert levels read it).
sent="$data/qzlogs/qzreports_lastfilestransmitted"
mkdir -p "$sent"
now_ms=$(($(date +%s) * 1000))
for g in "$c_guid" "$d_guid"; do
  printf '<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n<latest_file gmt_millis="%016x" />\n</contents>\n' \
    "$now_ms" >"$sent/qzstat_pervol_${g}_latest_file.xml"
done

echo "--- qzfilelist (the scan run, as the service starts it)"
start=$(date +%s.%N)
set +e
"$exe"
rc=$?
set -e
end=$(date +%s.%N)
echo "--- exit code $rc, the scan took $(python3 -c "print(f'{$end - $start:.2f}')") s"
# The first run finds no "topdirs.xml" and so runs urgently, without the
# 3-second rests a normal run takes after every 101 folders to spare the disk.

lists="$data/qzfilelists"
echo "--- the lists, in $lists:"
ls -l "$lists"
for f in "$lists"/v*_filelist.dat; do
  echo "--- $(basename "$f"): $(grep -vc '^#' "$f") files; its first lines:"
  head -n 6 "$f"
done
echo "--- the end of the log ($(ls "$data"/qzlogs/qzfilelist/)):"
tail -n 12 "$data"/qzlogs/qzfilelist/*.log | cut -c1-220
