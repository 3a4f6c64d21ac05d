#!/bin/sh
# Settles the records of a directory as a script would: usage: settle.sh DIRECTORY
for record in "$1"/halix_server*.dat; do
  read -r url user password pid < "$record" || continue
  if kill -0 "$pid" 2> /dev/null; then
    curl --silent --output /dev/null --user "$user:$password" "$url"
    rm -f "$record"
  fi
done
