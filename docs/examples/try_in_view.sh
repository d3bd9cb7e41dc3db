# What the host product's installation makes, and the host's own files.
mkdir -p tulsk/krellvane/logs tulsk/lib/kelp/configfiles tulsk/resources
cp backupd.conf tulsk/lib/kelp/configfiles/
cp -r libdiskwatch tulsk/resources/
echo 'VERBOSE = 9' >tulsk/krellvane/rk.conf

# The host sees them, and hosts of its own; nothing of the machine's is changed.
kelp-cmn-4-4-private-view --etc etc sh -c '
  cp -r tulsk /usr/
  ./try_host
  cut -d " " -f 3- /usr/tulsk/krellvane/logs/zorvt/backupd.log'
