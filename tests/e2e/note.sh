#!/bin/sh
# A script that notes its begin and its end, waits for as many seconds as its query says or until it
# may go, and tells its variables and how long its body is.
echo begin >>"$NOTES"
case $QUERY_STRING in
  crowd) until [ -e "$NOTES.go" ]; do sleep 0.1; done ;;
  [0-9]) sleep "$QUERY_STRING" ;;
esac
printf 'Content-Type: text/plain\n\n'
env
printf 'BODY=%d\n' "$(head -c "${CONTENT_LENGTH:-0}" | wc -c)"
echo end >>"$NOTES"
