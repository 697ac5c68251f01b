#!/bin/sh
# A script that writes to $NOTES when it begins and ends. It waits for the seconds in its query, or
# until a file exists, and prints its variables and the length of its body.
echo begin >>"$NOTES"
case $QUERY_STRING in
  crowd) until [ -e "$NOTES.go" ]; do sleep 0.1; done ;;
  [0-9]) sleep "$QUERY_STRING" ;;
esac
printf 'Content-Type: text/plain\n\n'
env
printf 'BODY=%d\n' "$(head -c "${CONTENT_LENGTH:-0}" | wc -c)"
echo end >>"$NOTES"
