#!/bin/sh
# What the web server starts, from the folder cgi-bin of its pages: it sets the limits of one
# request and starts the program, so that they hold for the program and for the child that it
# leaves to apply and save, and not for the web server.

program=/usr/lib/cgi-bin/tzr4417.cgi
body_limit=65536 # bytes of a request's body
time_limit=30    # seconds until the reply; the child that applies and saves may take longer
cpu_limit=10     # seconds of processor time, for the program and again for the child

# A page of another site can make a browser send a request with the user's password, but not with
# this header. A query that begins with "read=" makes of any request a read, and its answer the
# browser hides from such a page.
case "$QUERY_STRING" in
  read=*) ;;
  *)
    if [ -z "$HTTP_X_REQUESTED_WITH" ]; then
      printf 'HTTP/1.1 403 Forbidden\nContent-Type: text/plain\n\nNo X-Requested-With header\n'
      exit
    fi
    ;;
esac

export CGICC_MAX_CONTENTLENGTH="$body_limit"
# shellcheck disable=SC3045 # of the shells without it, none is meant
ulimit -t "$cpu_limit"
# A reply that nobody takes any more would otherwise end a write before it is applied and saved.
trap '' PIPE
# Where the web server has closed standard error, the daemon's connection would take its place.
exec timeout "$time_limit" "$program" 2>/dev/null
