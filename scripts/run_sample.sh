#!/usr/bin/env bash
# Builds the native program, makes a sample machine under ./sample (a C: volume
# shaped like a Windows system drive, the client's install and data
# directories) and runs qzfilelist on it the way the service does: once with no
# argument, then a few diagnostic switches. Prints the log it wrote.
#   scripts/run_sample.sh [number-of-files]
set -euo pipefail
cd "$(dirname "$0")/.."
files=${1:-20000}
scripts/install_deps.sh native

cmake --preset native >/dev/null
cmake --build --preset native >/dev/null
exe=$PWD/build/native/qzfilelist

root=$PWD/sample
rm -rf "$root"
mkdir -p "$root/c" "$root/d"
gen=../shared/bench/gen_tree.py
if [ -f "$gen" ]; then
  python3 "$gen" "$root/c" --files "$files" --seed 1
else
  mkdir -p "$root/c/Users/Bob/Documents" "$root/c/Windows/System32"
  echo "hello" >"$root/c/Users/Bob/Documents/notes.txt"
fi
mkdir -p "$root/c/Program Files/Korvatine" "$root/c/ProgramData/Korvatine/qzdata/qzfilelists"
cat >"$root/c/Program Files/Korvatine/qzinstall.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8" ?>
<contents>
<qzinstall datadir="C:\ProgramData\Korvatine\qzdata\" hguid="h0123456789abcdef0123456" />
</contents>
XML
echo "sample file on D:" >"$root/d/readme.txt"
cat >"$root/c/ProgramData/Korvatine/qzdata/qzinfo.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8" ?>
<contents>
<qzinfo excludefiletypes="tmp,bak" max_filesize_mb="4000" numdays_warn_if_no_backup="7" />
<hard_drives_to_backup>
</hard_drives_to_backup>
</contents>
XML

export QZ_DRIVES="C=$root/c;D=$root/d"
echo "--- QZ_DRIVES=$QZ_DRIVES"
for args in "" "-version" "-oswithdetail" "-time" "-printRam" "-merge_exclude_rules" \
            "-assignvolumeguid D:\\" "-update_qzvolumes_xml" "-listvolumes" "-queryattachedvolumes" \
            "-dirlist C:\\Users" "-grep qzVolumeGuid C:\\ProgramData\\Korvatine\\qzdata\\qzvolumes.xml"; do
  echo "--- qzfilelist $args"
  # shellcheck disable=SC2086
  "$exe" $args || echo "(exit code $?)"
done
echo "--- files in the data directory:"
(cd "$root/c/ProgramData/Korvatine/qzdata" && find . -type f | sort)
echo "--- log: $(ls "$root"/c/ProgramData/Korvatine/qzdata/qzlogs/qzfilelist/)"
tail -n 40 "$root"/c/ProgramData/Korvatine/qzdata/qzlogs/qzfilelist/*.log
