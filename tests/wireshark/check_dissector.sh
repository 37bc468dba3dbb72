#!/usr/bin/env bash
# The Wireshark dissector (tools/wireshark/atcmd.lua) against a capture the
# real module made in a scenario: tshark decodes every line, and the decoded
# fields and the links between commands and replies must be exactly the
# expected ones. Read boundaries and the interleaving of the two directions
# vary from run to run, so each line is printed on its own with the text of
# the line it links to, and the lines are compared sorted.
# usage: check_dissector.sh SCENARIOS_BINARY SOURCE_DIR
set -euo pipefail
scenarios=$1
src=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

ATCMD_KEEP_CAPTURE="$work/capture.pcapng" "$scenarios" \
  --gtest_filter=Scenario.TheCapturePropertyRecordsTheNodesBytesWithTheirReadBoundaries >"$work/scenario.log" 2>&1 ||
  { tail -20 "$work/scenario.log" >&2; echo "the scenario that makes the capture failed" >&2; exit 1; }

# One row per frame; several lines in one frame are joined with '~'. Every
# line has exactly one atcmd.line and one atcmd.summary, so they pair up.
tshark -2 -R atcmd -X lua_script:"$src/tools/wireshark/atcmd.lua" -r "$work/capture.pcapng" \
  -T fields -E separator='|' -E aggregator='~' -E occurrence=a \
  -e frame.number -e frame.p2p_dir -e atcmd.line -e atcmd.summary \
  2>"$work/tshark.err" >"$work/fields" || { cat "$work/tshark.err" >&2; exit 1; }

# Frame numbers in the links become the text of the linked line (the one with
# the same sequence number), so the result does not depend on read boundaries.
# Lines of the "events" interface carry no atcmd.line and are left out.
awk -F'|' '
  { frames[$1] = $0 }
  END {
    for (n in frames) {
      split(frames[n], c, "|")
      if (c[3] == "") continue
      k = split(c[3], line, "~"); split(c[4], summary, "~")
      for (i = 1; i <= k; i++) {
        m = split(summary[i], w, " "); out = ""; seq = ""
        for (j = 1; j <= m; j++) if (w[j] ~ /^seq=/) seq = substr(w[j], 5)
        for (j = 1; j <= m; j++) {
          if (w[j] ~ /^(reply_in|command_in)=/) {
            split(w[j], kv, "="); w[j] = kv[1] "=" linked(frames[kv[2]], seq)
          }
          out = out (j > 1 ? " " : "") w[j]
        }
        printf "%s %s | %s\n", c[2] == "1" ? "in " : "out", out, substr(line[i], 1, 44)
      }
    }
  }
  function linked(frame, s,    c, l, q, j, m, ww, x, y) {
    split(frame, c, "|"); m = split(c[3], l, "~"); split(c[4], q, "~")
    for (j = 1; j <= m; j++) {
      y = split(q[j], ww, " ")
      for (x = 1; x <= y; x++) if (ww[x] == "seq=" s) return l[j]
    }
    return "?"
  }' "$work/fields" | sort >"$work/decoded"

if ! diff -u "$src/tests/wireshark/expected.txt" "$work/decoded"; then
  echo "the dissector decoded the scenario's capture differently (- expected, + decoded)" >&2
  exit 1
fi
echo "tshark with the dissector decoded $(wc -l <"$work/decoded") lines of the scenario's capture as expected"
