#!/usr/bin/env bash
# tell_loader.sh BUILD SOURCE
#
# What is done and said about the loader after an installation: into a directory that it searches, by whatever path, as
# root and as an ordinary user, and into another one. A stand-in for ldconfig knows where the loader searches.
set -euo pipefail
tell=$2/cmake/tell_loader
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/searched" "$scratch/own prefix" "$scratch/bin"
ln -s searched "$scratch/link"

cat >"$scratch/bin/ldconfig" <<'STAND_IN'
#!/usr/bin/env bash
if [ $# = 0 ]; then
  echo "ldconfig runs"
else
  printf '%s: (from somewhere)\n\tlibc.so.6 -> libc.so.6\n' /no/such/directory "$SCRATCH/searched"
fi
STAND_IN
printf '#!/usr/bin/env bash\necho "$USER_NUMBER"\n' >"$scratch/bin/id"
chmod +x "$scratch"/bin/*
export SCRATCH=$scratch PATH=$scratch/bin:$PATH

expect() { # EXPECTED USER_NUMBER DIRECTORY
  local said
  said=$(USER_NUMBER=$2 "$tell" "$3" 2>&1)
  [ "$said" = "$1" ] || { echo "user $2, $3: $said" >&2; exit 1; }
}
renewed=$'==> running ldconfig\nldconfig runs'
expect "$renewed" 0 "$scratch/searched"
expect "$renewed" 0 "$scratch/link"
expect "==> hosts find the library after: sudo ldconfig" 1000 "$scratch/searched"
for user in 0 1000; do
  expect "==> the loader does not search $scratch/own prefix: link hosts with -Wl,-rpath,$scratch/own\ prefix" \
    "$user" "$scratch/own prefix"
done
