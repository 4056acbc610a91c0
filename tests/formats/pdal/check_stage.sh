#!/usr/bin/env bash
# Runs the pdal command with the stage of a build, and vxunpack with BPF files, and compares their output:
# check_stage.sh BUILD. Ends with the line "N passed, M failed".
set -uo pipefail

build=$1
survey=$(cd "$(dirname "$0")/../../.." && pwd)/examples/survey.vxl
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory" || exit 1
export PDAL_DRIVER_PATH=$build

passed=0
failed=0
check() { # check WHAT COMMAND ...: the command must succeed
  local what=$1
  shift
  if "$@" >log 2>&1; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    echo "FAILED: $what"
    head -n 10 log
  fi
}
refuses() { # refuses TEXT COMMAND ...: the command must fail with that text
  local text=$1
  shift
  if "$@" >output 2>&1; then echo "no error"; return 1; fi
  grep -qF "$text" output || { cat output; return 1; }
}
holds() { # holds FILE TEXT ...: the file has a line with each text
  local file=$1 text
  shift
  for text in "$@"; do grep -qF "$text" "$file" || { echo "no '$text' in:"; cat "$file"; return 1; }; done
}
same() { # same A B LINES TOLERANCES: tables of numbers, each column within its tolerance (the last goes for all others)
  awk -v lines="$3" -v tolerances="$4" '
    BEGIN { n = split(tolerances, tolerance, " ") }
    { gsub(/[",]/, " "); $0 = $0 }
    FNR == 1 { file++; next }
    file == 1 { first[FNR] = $0; next }
    {
      if (split(first[FNR], a, " ") != NF) { print "line " FNR " has " NF " fields"; exit bad = 1 }
      for (i = 1; i <= NF; i++) {
        difference = a[i] - $i
        if (difference < 0) difference = -difference
        if (difference > tolerance[i < n ? i : n]) { print "line " FNR ", field " i ": " a[i] ", " $i; exit bad = 1 }
      }
      count++
    }
    END { if (!bad && (count != lines || length(first) != lines)) { print count " and " length(first) " lines"; bad = 1 }; exit bad }' \
    "$1" "$2"
}
vxunpack() { "$build/vxunpack" -i "$survey" "$@" >/dev/null; }
stage=(--reader readers.quillmoran)
dimensions=X:3,Y:3,Z:3,Intensity:0,ReturnNumber:0,NumberOfReturns:0,ScanDirectionFlag:0,EdgeOfFlightLine:0
dimensions+=,Classification:0,ScanAngleRank:0,PointSourceId:0,GpsTime:10,Red:0,Green:0,Blue:0
to_text() { # to_text IN OUT OPTION ...
  local input=$1 output=$2
  shift 2
  pdal translate "$@" --writer writers.text --writers.text.order="$dimensions" --writers.text.keep_unspecified=false \
    "$input" "$output"
}
exact=0.0000000001

# Without reading points.
pdal info --summary --driver readers.quillmoran "$survey" >summary 2>&1
check "summary" holds summary '"num_points": 2400' '"minx": 499999.94' '"maxz": 166.8' 'UTM zone 13N' \
  '"dimensions": "X, Y, Z, Intensity, ReturnNumber, NumberOfReturns, ScanDirectionFlag, EdgeOfFlightLine, Classification,'
pdal info --all --driver readers.quillmoran "$survey" >all 2>&1
check "schema, metadata and statistics" holds all '"name": "Intensity"' '"type": "unsigned"' '"count": 2400' \
  '"format": "VX7 4.0.0.4"' '"PreCompressionPointCount": "2400"' '"scale_x": 0.01' '"maximum": 500179.76'

# All points and queries: the same points that vxunpack writes.
vxunpack -o all.txt
for mode in --stream --nostream; do
  check "text $mode" to_text "$survey" out.txt "${stage[@]}" $mode
  check "all points $mode" same all.txt out.txt 2400 $exact
  vxunpack -o box.txt -c 500020 500060.5 4100000 4100020 -inf +inf
  check "box $mode" to_text "$survey" out.txt "${stage[@]}" $mode \
    --readers.quillmoran.bounds='([500020,500060.5],[4100000,4100020])'
  check "points of the box $mode" same box.txt out.txt "$(($(wc -l <box.txt) - 1))" $exact
  vxunpack -o box3.txt -s 2 -c 500020 500100 4100000 4100040 130 150
  check "box with heights, half of it $mode" to_text "$survey" out.txt "${stage[@]}" $mode \
    --readers.quillmoran.bounds='([500020,500100],[4100000,4100040],[130,150])' --readers.quillmoran.fraction=0.5
  check "half of the points of a box $mode" same box3.txt out.txt "$(($(wc -l <box3.txt) - 1))" $exact
  vxunpack -o thin.txt -s 3
  check "third $mode" to_text "$survey" out.txt "${stage[@]}" $mode \
    --readers.quillmoran.fraction=0.33333333333333333 --readers.quillmoran.threads=1
  check "a third of the points $mode" same thin.txt out.txt 800 $exact
  head -n 101 all.txt >hundred.txt
  check "count $mode" to_text "$survey" out.txt "${stage[@]}" $mode --readers.quillmoran.count=100
  check "the first hundred points $mode" same hundred.txt out.txt 100 $exact
done
check "that boxes keep some points" test "$(wc -l <box.txt)" -gt 100 -a "$(wc -l <box3.txt)" -gt 100

# LAS of the stage and of vxunpack.
check "LAS" pdal translate "${stage[@]}" "$survey" stage.las --writers.las.scale_x=0.01 --writers.las.scale_y=0.01 \
  --writers.las.scale_z=0.01 --writers.las.offset_x=500000 --writers.las.offset_y=4100000 --writers.las.offset_z=100
check "LAS as text" to_text stage.las out.txt
check "points by way of LAS" same all.txt out.txt 2400 $exact
check "LAS of vxunpack" vxunpack -o own.las
check "LAS of vxunpack as text" to_text own.las own.txt
check "the same LAS" same out.txt own.txt 2400 $exact

# A pipeline with channels chosen by channel or dimension name.
cat >pipeline.json <<JSON
[ { "type": "readers.quillmoran", "filename": "$survey", "channels": "ClassId, Intensity" },
  { "type": "filters.range", "limits": "Classification[5:5]" },
  { "type": "writers.text", "filename": "trees.txt", "order": "X:3,Y:3,Z:3,Intensity:0,Classification:0" } ]
JSON
check "pipeline" pdal pipeline --stream pipeline.json
vxunpack -o fields.txt -ofld xyzic
awk 'NR == 1 || $5 == 5' fields.txt >expected.txt
check "points of the pipeline" same expected.txt trees.txt "$(($(wc -l <expected.txt) - 1))" $exact

# Errors.
head -c 9000 "$survey" >short.vxl
to_null() { pdal translate "${stage[@]}" --writer writers.null "$@" null; }
check "a truncated file" refuses "readers.quillmoran: bad read -- chunk id" to_null short.vxl
check "a missing file" refuses "No such file or directory" to_null none.vxl
check "an unknown channel" refuses "could not find channel 'Colour'" to_null "$survey" --readers.quillmoran.channels=Colour
check "a fraction of nothing" refuses "'fraction' must be above 0" to_null "$survey" --readers.quillmoran.fraction=0

# BPF. PDAL stores times as floats; other values are exact.
floats="$exact $exact $exact 0 0 0 0 0 0 0 0 0.01 0"
check "BPF" vxunpack -o own.bpf
pdal info --summary own.bpf >summary 2>&1
check "summary of BPF" holds summary '"num_points": 2400' '"minx": 499999.94' 'UTM zone 13N'
check "BPF as text" to_text own.bpf out.txt
check "points of BPF" same all.txt out.txt 2400 "$floats"
check "part of it as BPF" vxunpack -o box.bpf -s 2 -c 500020 500100 4100000 4100040 130 150
check "part as text" to_text box.bpf out.txt
check "points of the part" same box3.txt out.txt "$(($(wc -l <box3.txt) - 1))" "$floats"
check "BPF of the stage" pdal translate "${stage[@]}" "$survey" stage.bpf --writers.bpf.offset_x=500000 \
  --writers.bpf.offset_y=4100000
check "BPF of the stage as text" to_text stage.bpf out.txt
check "points of the stage's BPF" same all.txt out.txt 2400 "0.0001 0.0001 0.0001 0 0 0 0 0 0 0 0 0.01 0"

# The installed plugin and program.
check "installation" cmake --install "$build" --prefix "$directory/usr"
export PDAL_DRIVER_PATH=$directory/usr/lib
check "installed stage" to_text "$survey" out.txt "${stage[@]}"
check "points of the installed stage" same all.txt out.txt 2400 $exact
check "installed vxunpack" "$directory/usr/bin/vxunpack" -i "$survey" -o installed.bpf
check "BPF of the installed vxunpack" cmp own.bpf installed.bpf

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
