#!/bin/sh
# A slow script. It appends the line that it received to $SHARED/lines, and prints the line and the
# machine.
line=$(head -c "${CONTENT_LENGTH:-0}")
sleep 0.05
[ "$REQUEST_METHOD" != POST ] || echo "$line" >>"$SHARED/lines"
sleep 0.05
printf 'Content-Type: text/plain\n\n%s %s %s\n' "$line" "$QUERY_STRING" "${MACHINE-$SERVER_ADDR}"
