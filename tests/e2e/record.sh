#!/bin/sh
# Writes what tarn-form prints to $RECORD and, if the query is "save", the files of the form to
# $RECORD.files. Answers with one word, so that a browser shows it.
unset GATEWAY_INTERFACE # tarn-form would ignore options
if [ "$QUERY_STRING" = save ]; then set -- --save "$RECORD.files"; else set --; fi
if "$(dirname "$0")/tarn-form" "$@" >"$RECORD"; then word=whole; else word=broken; fi
printf 'Content-Type: text/plain\n\n%s\n' "$word"
