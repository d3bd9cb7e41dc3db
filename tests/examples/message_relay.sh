#!/usr/bin/env bash
# message_relay.sh PROGRAM RESOURCES
#
# Runs in the private view: what the example prints in each language, with a fallback to the root's texts and one to the
# default language, and on wrong use.
set -uo pipefail
program=$1
mkdir -p /usr/tulsk/resources
cp -r "$2/libmessage_relay" /usr/tulsk/resources/
export TZ=UTC
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT

"$program" en de ja it en_AU >"$scratch/out" 2>"$scratch/err"
status=$?
[ $status = 0 ] || { echo "exit status $status"; cat "$scratch/err"; exit 1; }

# en_AU has no file of its own: its catalog fails, so the words are the default language's, while the numbers and dates
# follow the locale that the program set.
diff - "$scratch/out" <<'TEXT' || exit 1
en: message_relay: The backup of /home ended on March 1, 2026: 12,345 files, 7.5 GB.
de: message_relay: Die Sicherung von /home wurde am 1. März 2026 abgeschlossen: 12.345 Dateien, 7,5 GB.
ja: message_relay: 2026年3月1日に/homeのバックアップが完了しました（12,345ファイル、7.5 GB）。
it: message_relay: backup ended: /home, 12.345, 7,5 GB, 2026-03-01
en_AU: message_relay: The backup of /home ended on 1 March 2026: 12,345 files, 7.5 GB.
TEXT
diff - "$scratch/err" <<'TEXT' || exit 1
received:
<SERIALIZED_MESSAGE MSGID=MSG_BACKUP_ENDED SEVERITY=1>
	<ARGVALUE INDEX=0 TYPE=3>/home</ARGVALUE>
	<ARGVALUE INDEX=1 TYPE=2>12345</ARGVALUE>
	<ARGVALUE INDEX=2 TYPE=1>7.5</ARGVALUE>
	<ARGVALUE INDEX=3 TYPE=0>1.77237e+12</ARGVALUE>
</SERIALIZED_MESSAGE>
TEXT

for wrong in "" --help; do
  "$program" "$wrong" >"$scratch/out" 2>"$scratch/err"
  status=$?
  [ $status = 64 ] || { echo "wrong use '$wrong': exit status $status"; exit 1; }
  diff - "$scratch/err" <<<"usage: message_relay LANGUAGE …" || exit 1
  [ ! -s "$scratch/out" ] || { echo "wrong use '$wrong' prints something"; exit 1; }
done
"$program" 2>"$scratch/err"
status=$?
[ $status = 64 ] || { echo "without a language: exit status $status"; exit 1; }
