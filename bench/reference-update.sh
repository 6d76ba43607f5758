#!/usr/bin/env bash
# The reference of bench_wholerun: the update's work done by standard tools,
# one file after another as the module does it. Fetches a module list, then
# for each module in it: curl fetches the file, gzip -d unpacks it, the
# installed file is copied to the backup folder and the new one put in its
# place through a temporary name.
#   reference-update.sh BASE-URL LIST-PATH DOWNLOAD-DIR INSTALL-DIR BACKUP-DIR
set -euo pipefail
base=$1 list=$2 download=$3 install=$4 backup=$5
mkdir -p "$download" "$backup"
curl -sfS -o "$download/list.txt" "$base$list"
# A list line: name,version,core,type,description,file,date,size in KiB
while IFS=, read -r name _ _ _ _ path _; do
  [[ -n $name ]] || continue
  packed=$download/${path##*/}
  curl -sfS -o "$packed" "$base$path"
  gzip -d -f "$packed"
  if [[ -f $install/$name ]]; then cp -p "$install/$name" "$backup/$name"; fi
  cp "${packed%.gz}" "$install/.$name.new"
  mv -f "$install/.$name.new" "$install/$name"
done <"$download/list.txt"
