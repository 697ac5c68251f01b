#!/bin/sh
# Runs a command with some of descriptors 0 to 2 closed: closed.sh DIGITS COMMAND...
closed=$1
shift
case $closed in *0*) exec 0<&- ;; esac
case $closed in *1*) exec 1>&- ;; esac
case $closed in *2*) exec 2>&- ;; esac
exec "$@"
